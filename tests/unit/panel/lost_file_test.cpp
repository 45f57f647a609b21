#include "panel/lost_file.h"

#include <filesystem>
#include <functional>

#include "framework/config_file.h"
#include "panel/domain_changes.h"
#include "panel/domains.h"
#include "panel/mailbox_changes.h"
#include "panel/mailbox_removal.h"
#include "panel/mailboxes.h"
#include "panel/refresh.h"
#include "panel/refresh_lock.h"
#include "panel/sync.h"
#include "tests/support/stub_program.h"
#include "tests/unit/panel/passwd_file_backend.h"

namespace brisq_panel {
namespace {

using panel_test::ErrorOf;
using testing::HasSubstr;

class LostFile : public panel_test::FilePanelTest {
 protected:
  LostFile() {
    RefreshLock::SetFolder(dir_.path());
    mgr_cf::SetPath("dovecot-doveadm", support::WriteStub(dir_ / "doveadm", "exit 75"));
    for (const char* local : {"al", "bo", "off", "gone"}) Add(local);
    SetMailboxes({"off@example.org"}, {.active = false});
    DeleteMailboxes({"gone@example.org"});
    AddDomain("example.net", "bob");
    AddMailbox({"x@example.net", "secret"});
    SetDomain("example.net", {.active = false});
  }
  static std::string Active() {
    return Column("SELECT name FROM mailboxes WHERE active = 'on' ORDER BY name");
  }
  static void AddAnother() { AddMailbox({"new@example.org", "secret"}); }
};

// Each would make a file of one line, for which the next refresh archived all others.
TEST_F(LostFile, NoMailboxIsMadeOrBroughtBackInAFileThatLacksTheOthers) {
  struct Loss {
    const char* name;
    std::function<void()> lose;
    const char* state;
  };
  const Loss losses[] = {
      {"removed", [this] { std::filesystem::remove(path_); }, "does not exist"},
      {"emptied", [this] { dir_.Write("passwd", ""); }, "holds no mailbox"},
      {"cut to half a line", [this] { dir_.Write("passwd", "al@example.org:h"); },
       "holds no mailbox"},
      {"comments alone", [this] { dir_.Write("passwd", "# users\n"); }, "holds no mailbox"},
  };
  const std::pair<const char*, std::function<void()>> changes[] = {
      {"add", AddAnother},
      {"switch on", [] { SetMailboxes({"off@example.org"}, {.active = true}); }},
      {"restore", [] { RestoreMailboxes({"gone@example.org"}); }},
      {"switch a domain on", [] { SetDomain("example.net", {.active = true}); }},
  };
  for (const Loss& loss : losses) {
    loss.lose();
    const bool there = std::filesystem::exists(path_);
    for (const auto& [name, change] : changes) {
      SCOPED_TRACE(std::string(loss.name) + ", " + name);
      const auto error = ErrorOf(change);
      EXPECT_EQ("limit", error.type());
      EXPECT_EQ(path_, error.object());
      EXPECT_THAT(error.value(), HasSubstr(std::string(loss.state) + ", but"));
      EXPECT_THAT(error.value(), HasSubstr("active mailboxes: 2; \"brisq sync\""));
      EXPECT_EQ(there, error.value().find("brisq refresh") != std::string::npos);
      EXPECT_EQ(there, std::filesystem::exists(path_));
      EXPECT_EQ("al bo", Active());
    }
  }
}

TEST_F(LostFile, AfterASyncAllGoesOn) {
  std::filesystem::remove(path_);
  Sync(false);
  AddAnother();
  EXPECT_THAT(Refresh(false).swept, testing::IsEmpty());
  EXPECT_EQ("al bo new", Active());
}

TEST_F(LostFile, TheFirstMailboxOfAllMakesTheFile) {
  DeleteMailboxes({"al@example.org", "bo@example.org"});
  std::filesystem::remove(path_);
  Refresh(false);
  AddAnother();
  EXPECT_THAT(Lines(), testing::StartsWith("new@example.org:"));
}

TEST_F(LostFile, TheLastMailboxOfAllComesBack) {
  DeleteMailboxes({"bo@example.org"});
  SetMailboxes({"al@example.org"}, {.active = false});
  dir_.Write("passwd", "");
  SetMailboxes({"al@example.org"}, {.active = true});
  EXPECT_THAT(Lines(), testing::StartsWith("al@example.org:"));
}

// An empty file is believed, whatever it held before.
TEST_F(LostFile, ARefreshStopsAtAMissingFileAndBelievesAnEmptyOne) {
  std::filesystem::remove(path_);
  for (const bool sweep : {false, true}) {
    const auto error = ErrorOf([&] { Refresh(sweep); });
    EXPECT_EQ("limit", error.type());
    EXPECT_EQ(path_, error.object());
    EXPECT_THAT(error.value(), HasSubstr("does not exist, but should hold the lines"));
  }
  EXPECT_EQ("al bo", Active());
  dir_.Write("passwd", "");
  EXPECT_EQ(2u, Refresh(false).swept.size());
  AddAnother();
  EXPECT_EQ("new", Active());
}

TEST_F(LostFile, ALinkIntoNowhereIsLeftToTheSave) {
  std::filesystem::remove(path_);
  std::filesystem::create_symlink(dir_ / "no/where", path_);
  RefuseFirstLine(0);
  std::filesystem::create_directory(dir_ / "no");
  EXPECT_EQ("limit", ErrorOf([] { RefuseFirstLine(0); }).type());
}

}  // namespace
}  // namespace brisq_panel
