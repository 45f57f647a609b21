// Refreshes by the plug-in on the host's real tables, files and children, each step failing once.

#include <filesystem>
#include <functional>

#include "brisq_db.h"
#include "email.h"
#include "framework/config_file.h"
#include "framework/database.h"
#include "framework/seal.h"
#include "panel/domains.h"
#include "panel/email_module.h"
#include "panel/file_stamps.h"
#include "panel/mailboxes.h"
#include "panel/owners.h"
#include "panel/records.h"
#include "panel/refresh.h"
#include "panel/refresh_lock.h"
#include "tests/support/stub_program.h"
#include "tests/support/sys_fault.h"
#include "tests/unit/email_live/live_fixture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

void Sql(const std::string& statement) { mgr_db::ThreadConnection()->Change(statement); }

std::string Column(const std::string& sql) {
  std::string values;
  for (const auto& row : mgr_db::ThreadConnection()->Query(sql, {}, 1)) {
    values += (values.empty() ? "" : " ") + row.front();
  }
  return values;
}

/// ann, bob, cy and dee have lines with hashes set by hand, gone has none; the panel keeps the
/// passwords. The tool makes the hash "{CRAM-MD5}fresh-ADDRESS".
class LiveRefresh : public live::LiveTest {
 protected:
  LiveRefresh() {
    mgr_cf::SetPath(
        "dovecot-doveadm",
        support::WriteStub(dir_ / "tool", "cd '" + dir_.path() +
                                              "'\n"
                                              "case \"$1 $2\" in\n"
                                              "'pw -l') echo 'CRAM-MD5 '; exit;;\n"
                                              "'quota get') cat figures; exit;;\n"
                                              "esac\n"
                                              "cat >/dev/null\n"
                                              "[ \"$5\" != \"$(cat failing)\" ] || exit 75\n"
                                              "[ ! -e silence ] || { cat silence; exit; }\n"
                                              "echo \"{CRAM-MD5}fresh-$5\"\n"));
    mgr_cf::SetParam("DovecotPwScheme", "CRAM-MD5");
    dir_.Write("failing", "");
    dir_.Write("figures", "");
    WriteFile("");
    OpenPanel();
    AddMailboxes();
    SetByHand();
    dir_.Write("figures", Figures());
  }

  ~LiveRefresh() override {
    brisq_panel::ForgetBackends();
    mgr_db::CloseDatabase();
    mgr_seal::SetKeyFile({});
  }

  void OpenPanel() {
    mgr_db::OpenDatabase(dir_ / "panel.db");
    mgr_seal::SetKeyFile(dir_ / "seal.key");
    brisq_panel::CreatePanelTables();
    brisq_panel::RefreshLock::SetFolder(dir_.path());
    back_end_ = std::make_unique<live::DovecotInterface>();
    passwords_.reset(back_end_->PasswordBackEnd());
    email::RegisterPop3(back_end_.get());
    brisq_panel::AddOwner({"owner", 1001, 1001, dir_ / "home"});
    brisq_panel::AddDomain("x.org", "owner");
  }

  void AddMailboxes() {
    for (const std::string name : {"ann", "bob", "cy", "dee", "gone"}) {
      brisq_panel::AddMailbox({name + "@x.org", "secret"});
    }
  }

  void SetByHand() {
    std::string file = File();
    if (const std::size_t gone = file.find("gone@"); gone != std::string::npos) {
      file.erase(gone);
    }
    for (std::size_t at = 0; (at = file.find("fresh", at)) != std::string::npos;) {
      file.replace(at, 5, "by-hand");
    }
    WriteFile(file);
  }

  static std::string Figures() {
    std::string rows;
    for (const std::string name : {"ann", "bob", "cy", "dee"}) {
      rows += name + "@x.org User quota STORAGE 3072 - 0\n";
    }
    return rows;
  }

  /// Names of the mailboxes that have their figure and the mark of the last walk.
  static std::string Marked() {
    return Column("SELECT name FROM mailboxes WHERE used = 3 AND tag <> 0 ORDER BY name");
  }
  static std::string Rows() { return Column("SELECT name FROM mailboxes ORDER BY name"); }

  /// Names of the lines that have the panel's password again.
  std::string Fresh() const {
    std::string names;
    const std::string file = File();
    for (const std::string name : {"ann", "bob", "cy", "dee"}) {
      if (file.find(name + "@x.org:{CRAM-MD5}fresh-" + name) != std::string::npos) {
        names += (names.empty() ? "" : " ") + name;
      }
    }
    return names;
  }

  std::unique_ptr<live::DovecotInterface> back_end_;
  std::unique_ptr<live::Passwords> passwords_;  // which the other one does not own
};

TEST_F(LiveRefresh, WithoutAFaultEverythingIsInLine) {
  const auto report = brisq_panel::Refresh(false);
  EXPECT_TRUE(report.walked);
  EXPECT_THAT(report.swept, ElementsAre("gone@x.org"));
  EXPECT_EQ("ann bob cy dee", Marked());
  EXPECT_EQ("ann bob cy dee", Fresh());
  EXPECT_FALSE(brisq_panel::Refresh(false).walked);
}

struct Fault {
  const char* name;
  std::function<void()> make;
  std::function<void()> mend;
  const char* error;   // type
  const char* marked;  // rows that stay posted
  bool swept;
  const char* fresh;  // lines that stay changed
};

/// A trigger that refuses a statement.
std::function<void()> Refusal(const std::string& when) {
  return [when] {
    Sql("CREATE TRIGGER refusal BEFORE " + when + " BEGIN SELECT RAISE(ABORT, 'refused'); END");
  };
}

void DropRefusal() { Sql("DROP TRIGGER refusal"); }

class LiveRefreshFault : public LiveRefresh {
 protected:
  /// In the order of the steps.
  std::vector<Fault> Faults() {
    return {
        {"the file can't be opened",
         [this] {
           std::filesystem::rename(file_, file_ + ".aside");
           std::filesystem::create_directory(file_);
         },
         [this] {
           std::filesystem::remove(file_);
           std::filesystem::rename(file_ + ".aside", file_);
         },
         "file", "", false, ""},
        {"the file's last state is not known",
         [] { Sql("ALTER TABLE file_stamps RENAME TO aside"); },
         [] { Sql("ALTER TABLE aside RENAME TO file_stamps"); }, "db", "", false, ""},
        {"an address can't be looked up", [] { Sql("ALTER TABLE domains RENAME TO aside"); },
         [] { Sql("ALTER TABLE aside RENAME TO domains"); }, "db", "", false, ""},
        {"the first row can't be posted", Refusal("UPDATE ON mailboxes WHEN OLD.name = 'ann'"),
         DropRefusal, "db", "", false, ""},
        {"the third row can't be posted", Refusal("UPDATE ON mailboxes WHEN OLD.name = 'cy'"),
         DropRefusal, "db", "ann bob", false, ""},
        {"what is swept can't be kept", Refusal("INSERT ON mailbox_archive"), DropRefusal, "db",
         "ann bob cy dee", false, ""},
        {"no row can be removed", Refusal("DELETE ON mailboxes"), DropRefusal, "db",
         "ann bob cy dee", false, ""},
        {"the time of the password run can't be kept",
         Refusal("INSERT ON panel_state WHEN NEW.name = 'password-run-ms'"), DropRefusal, "db",
         "ann bob cy dee", true, ""},
        {"the first password can't be hashed", [this] { dir_.Write("failing", "ann@x.org"); },
         [this] { dir_.Write("failing", ""); }, "email", "ann bob cy dee", true, ""},
        {"the third password can't be hashed", [this] { dir_.Write("failing", "cy@x.org"); },
         [this] { dir_.Write("failing", ""); }, "email", "ann bob cy dee", true, "ann bob"},
        {"the lines can't be saved",
         [this] {
           calls_ = std::make_unique<support::SysFault>();
           calls_->FailCall("fsync", EIO);
         },
         [this] { calls_.reset(); }, "file", "ann bob cy dee", true, ""},
    };
  }

  std::unique_ptr<support::SysFault> calls_;
};

TEST_F(LiveRefreshFault, EachKeepsWhatWasDoneBeforeAndTheNextRefreshWalksAgain) {
  const std::size_t count = Faults().size();
  for (std::size_t number = 0; number < count; ++number) {
    const Fault fault = Faults()[number];
    SCOPED_TRACE(fault.name);
    Sql("UPDATE mailboxes SET used = 0, tag = 0");
    Sql("DELETE FROM panel_state WHERE name = 'password-run-ms'");
    if (Rows() == "ann bob cy dee") brisq_panel::AddMailbox({"gone@x.org", "secret"});
    SetByHand();
    auto* const mailboxes = brisq_db::GetCache().Get<brisq_db::EmailTable>().get();
    auto* const domains = brisq_db::GetCache().Get<brisq_db::EmailDomainTable>().get();

    fault.make();
    EXPECT_THAT(live::ErrorOf([] { brisq_panel::Refresh(false); }), StartsWith(fault.error));
    fault.mend();
    EXPECT_EQ(fault.marked, Marked());
    EXPECT_EQ(fault.swept ? "ann bob cy dee" : "ann bob cy dee gone", Rows());
    EXPECT_EQ(fault.fresh, Fresh());
    EXPECT_EQ(mailboxes, brisq_db::GetCache().Get<brisq_db::EmailTable>().get());
    EXPECT_EQ(domains, brisq_db::GetCache().Get<brisq_db::EmailDomainTable>().get());

    EXPECT_TRUE(brisq_panel::Refresh(false).walked);
    EXPECT_EQ("ann bob cy dee", Marked());
    EXPECT_EQ("ann bob cy dee", Rows());
    EXPECT_EQ("ann bob cy dee", Fresh());
  }
}

TEST_F(LiveRefresh, OfAnUnchangedFileKeepsTheFiguresPostedBeforeAFault) {
  brisq_panel::Refresh(false);
  Sql("UPDATE mailboxes SET used = 1");
  Refusal("UPDATE ON mailboxes WHEN OLD.name = 'cy'")();
  EXPECT_THAT(live::ErrorOf([] { brisq_panel::Refresh(false); }), StartsWith("db"));
  EXPECT_EQ("3 3 1 1", Column("SELECT used FROM mailboxes ORDER BY name"));
  DropRefusal();
  EXPECT_FALSE(brisq_panel::Refresh(false).walked) << "nothing has changed in the file";
  EXPECT_EQ("3 3 3 3", Column("SELECT used FROM mailboxes ORDER BY name"));
}

// The tag is any 32-bit number; one in two is negative.
TEST_F(LiveRefresh, TagsOfBothSignsSweepAndKeepTheRightRows) {
  bool negative = false;
  bool positive = false;
  for (int walk = 0; walk < 64 && !(negative && positive); ++walk) {
    if (Rows() == "ann bob cy dee") {
      brisq_panel::AddMailbox({"gone@x.org", "secret"});
      SetByHand();
    }
    ASSERT_THAT(brisq_panel::Refresh(false).swept, ElementsAre("gone@x.org"));
    ASSERT_EQ("ann bob cy dee", Rows());
    const std::string tag = Column("SELECT DISTINCT tag FROM mailboxes");
    ASSERT_EQ(std::string::npos, tag.find(' ')) << tag;
    (tag.front() == '-' ? negative : positive) = true;
  }
  EXPECT_TRUE(negative && positive);
}

TEST_F(LiveRefresh, ARowThatHoldsTheTagByChanceIsKept) {
  Sql("CREATE TRIGGER collision AFTER UPDATE ON mailboxes WHEN NEW.name = 'dee' BEGIN "
      "UPDATE mailboxes SET tag = NEW.tag WHERE name = 'gone'; END");
  EXPECT_THAT(brisq_panel::Refresh(false).swept, testing::IsEmpty());
  EXPECT_EQ("ann bob cy dee gone", Rows());
  Sql("DROP TRIGGER collision");
  WriteFile(File() + "# changed\n");
  EXPECT_THAT(brisq_panel::Refresh(false).swept, ElementsAre("gone@x.org"));
}

TEST_F(LiveRefresh, AToolThatFailsInSilenceRuinsNoHash) {
  const std::string before = File();
  for (const char* answer :
       {"", "\n", "*0\n", "{CRAM-MD5}*0\n", "Debug: reading\n", "{CLEARTEXT}secret\n"}) {
    SCOPED_TRACE(answer);
    dir_.Write("silence", answer);
    const std::string error = live::ErrorOf([] { brisq_panel::Refresh(false); });
    EXPECT_THAT(error, StartsWith("email: doveadm: "));
    EXPECT_THAT(error, HasSubstr("passwords stay as they were"));
    EXPECT_EQ(before, File());
  }
  std::filesystem::remove(dir_ / "silence");
  EXPECT_TRUE(brisq_panel::Refresh(false).walked) << "it has not forgotten";
  EXPECT_EQ("ann bob cy dee", Fresh());
}

TEST_F(LiveRefresh, APasswordThatTheToolCannotHashIsNamedByTheToolAndNeverShown) {
  dir_.Write("failing", "bob@x.org");
  const std::string error = live::ErrorOf([] { brisq_panel::Refresh(false); });
  EXPECT_EQ("email: doveadm: ended with exit status 75 without a word", error);
  EXPECT_THAT(File(), testing::Not(HasSubstr("secret")));
}

}  // namespace
