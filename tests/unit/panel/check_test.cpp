#include "panel/check.h"

#include <sys/stat.h>

#include <filesystem>
#include <future>

#include "framework/config_file.h"
#include "framework/fingerprint.h"
#include "framework/journal.h"
#include "panel/mailbox_removal.h"
#include "panel/recovery.h"
#include "panel/run_request.h"
#include "panel/tls.h"
#include "tests/support/sys_fault.h"
#include "tests/unit/panel/certificate_files.h"
#include "tests/unit/panel/passwd_file_backend.h"

namespace {

using brisq_panel::CheckInstance;
using brisq_panel::Drift;
using brisq_panel::MendDrift;
using panel_test::TextOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

class CheckTest : public panel_test::FilePanelTest {
 protected:
  CheckTest() {
    Use(true);
    mgr_cf::SetPath("dovecot-ssl-certs", dir_.MakeFolder("certs"));
    mgr_cf::SetPath("dovecot-certconf", dir_.MakeFolder("snippets"));
  }

  static std::vector<std::string> CodesOf(const std::string& area) {
    std::vector<std::string> codes;
    for (const Drift& drift : CheckInstance(area)) {
      codes.push_back(drift.finding.code);
    }
    return codes;
  }

  static mode_t ModeOf(const std::string& path) {
    struct stat state {};
    EXPECT_EQ(0, ::stat(path.c_str(), &state));
    return state.st_mode & 07777;
  }

  static Drift Find(const std::string& area, const std::string& code) {
    for (Drift& drift : CheckInstance(area)) {
      if (drift.finding.code == code) {
        return drift;
      }
    }
    ADD_FAILURE() << code << " is not found";
    return {{}, [] {}};
  }
};

TEST_F(CheckTest, WhatARequestIsAtIsNoDrift) {
  std::promise<void> written;
  std::promise<void> told;
  std::future<void> adding = std::async(std::launch::async, [&] {
    brisq_panel::RunRequest("test", [&](Request&) {
      Add("alice");
      written.set_value();
      // A check that waits for this request ends behind it: time enough for one that does not.
      told.get_future().wait_for(std::chrono::milliseconds(500));
    });
  });
  written.get_future().wait();
  const auto codes = CodesOf("passwd");
  told.set_value();
  adding.get();
  EXPECT_THAT(codes, Not(Contains("PASSWD-STRANGER")));
}

TEST_F(CheckTest, AMendSetsTheCertificateThatTheDomainHasByThen) {
  const auto old = panel_test::MakeCertificate(dir_, "old", "DNS:example.org");
  const auto fresh = panel_test::MakeCertificate(dir_, "fresh", "DNS:example.org");
  brisq_panel::SetCertificate("example.org", old.cert, old.key, false);
  const Drift drift = Find("tls", "TLS-LINK");
  brisq_panel::SetCertificate("example.org", fresh.cert, fresh.key, false);
  calls_.made.clear();
  MendDrift(drift);
  EXPECT_THAT(calls_.made, Contains(HasSubstr(fresh.cert)));
  EXPECT_THAT(calls_.made, Not(Contains(HasSubstr(old.cert))));
}

TEST_F(CheckTest, ASnippetThatWasEditedSinceTheLookIsLeft) {
  const auto files = panel_test::MakeCertificate(dir_, "cert", "DNS:example.org");
  brisq_panel::SetCertificate("example.org", files.cert, files.key, false);
  const Drift drift = Find("tls", "TLS-LINK");
  const std::string snippet = dir_.Write("snippets/example.org.conf", "mine");
  calls_.made.clear();
  EXPECT_EQ("limit: " + snippet + ": was changed by hand meanwhile",
            TextOf([&] { MendDrift(drift); }));
  EXPECT_THAT(calls_.made, testing::IsEmpty());
}

TEST_F(CheckTest, NoMaildirIsMadeOfAMailboxThatIsGoneSince) {
  Add("alice");
  std::filesystem::create_directories(Home());
  const Drift drift = Find("homes", "MAILDIR-MISSING");
  brisq_panel::DeleteMailboxes({"alice@example.org"});
  EXPECT_EQ("missed: mailbox: alice@example.org", TextOf([&] { MendDrift(drift); }));
  EXPECT_FALSE(std::filesystem::exists(drift.finding.object));
}

// As a killed "tls set" leaves it: the new file in place, the old one beside it.
TEST_F(CheckTest, WhatAnUnfinishedRequestMayPutBackIsNoLeftoverToRemove) {
  journal::SetFolder(dir_ / "journal");
  const std::string place = dir_.Write("snippets/x.conf", "new");
  const std::string aside = dir_.Write("snippets/.brisq-job-0123456789abcdef", "old");
  const Drift before = Find("leftovers", "LEFTOVER-JOB");
  ASSERT_TRUE(before.mend);
  journal::Entry("00000000000000d1", {"request", {{"name", "tls set"}}})
      .Write({{"swap",
               {{"path", place},
                {"aside", aside},
                {"key", aside},
                {"old", fingerprint::OfContent("old")},
                {"new", fingerprint::OfContent("new")}}}},
             true);
  {
    support::SysFault fault;
    fault.FailCall("rename", EIO);
    brisq_panel::RecoverRequests();
  }
  EXPECT_THAT(TextOf([&] { MendDrift(before); }), HasSubstr("journal/00000000000000d1"))
      << "found when the request had not been killed yet";
  const Drift found = Find("leftovers", "LEFTOVER-JOB");
  EXPECT_FALSE(found.mend);
  EXPECT_THAT(found.finding.text, HasSubstr("journal/00000000000000d1"));
  EXPECT_THAT(found.finding.fix, HasSubstr("JOURNAL-OPEN"));
  brisq_panel::RecoverRequests();
  EXPECT_EQ("old", dir_.Read("snippets/x.conf")) << "it was needed";
  EXPECT_THAT(CodesOf("leftovers"), testing::IsEmpty());
  journal::SetFolder("");
}

TEST_F(CheckTest, AModeIsMendedFromWhatItIsByThen) {
  std::filesystem::create_directories(Home());
  ASSERT_EQ(0, ::chown(Home().c_str(), 1001, 1001));
  ASSERT_EQ(0, ::chmod(Home().c_str(), 0757));
  const Drift drift = Find("homes", "OWNER-ACCESS");
  ASSERT_EQ(0, ::chmod(Home().c_str(), 0707));
  MendDrift(drift);
  EXPECT_EQ(0705u, ModeOf(Home()));
}

TEST_F(CheckTest, AModeThatCantBeLookedAtIsNotMended) {
  std::filesystem::create_directories(Home());
  ASSERT_EQ(0, ::chown(Home().c_str(), 1001, 1001));
  ASSERT_EQ(0, ::chmod(Home().c_str(), 0757));
  const Drift drift = Find("homes", "OWNER-ACCESS");
  bool failed = true;
  for (std::size_t call = 1; failed; ++call) {
    SCOPED_TRACE(call);
    ASSERT_EQ(0, ::chmod(Home().c_str(), 0757));
    std::string told;
    {
      support::SysFault fault;
      fault.FailNumber(call, EIO, false);
      told = TextOf([&] { MendDrift(drift); });
      failed = fault.Failed();
    }
    EXPECT_EQ(told == "none" ? 0755u : 0757u, ModeOf(Home())) << told;
  }
}

// A finding that nobody could look at would be one that nobody mends.
TEST_F(CheckTest, AnErrorAtAnyCallHidesNoFinding) {
  std::filesystem::create_directories(Home());
  ASSERT_EQ(0, ::chown(Home().c_str(), 1001, 1001));
  ASSERT_EQ(0, ::chmod(Home().c_str(), 0757));
  ASSERT_EQ(0, ::chmod((dir_ / "snippets").c_str(), 0777));
  for (const char* area : {"homes", "tls"}) {
    bool failed = true;
    for (std::size_t call = 1; failed; ++call) {
      support::SysFault fault;
      fault.FailNumber(call, EIO, false);
      EXPECT_THAT(CodesOf(area), Not(testing::IsEmpty())) << area << " at call " << call;
      failed = fault.Failed();
    }
  }
}

}  // namespace
