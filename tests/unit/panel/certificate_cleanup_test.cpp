#include "panel/certificate_cleanup.h"

#include <filesystem>

#include "brisq_api.h"
#include "framework/config_file.h"
#include "framework/journal.h"
#include "framework/request.h"
#include "mgr_err.h"
#include "panel/recovery.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kDangling = "local_name example.org {\n\tssl_cert = </no/such.crt\n}\n";
constexpr const char* kSound = "local_name example.org {\n\tssl_cert = </dev/null\n}\n";

class RecordingAction : public brisq_api::Action {
 public:
  RecordingAction(const std::string& name, panel_test::Calls& calls)
      : Action(name, 0, nullptr), calls_(calls) {}
  void Execute(brisq_api::Session& session) const override {
    calls_.Note(name(), session.Param("hard"));
  }

 private:
  panel_test::Calls& calls_;
};

class CertificateCleanup : public testing::Test {
 protected:
  CertificateCleanup() {
    mgr_cf::SetPath("dovecot-ssl-certs", dir_ / "ssl");
    mgr_cf::SetPath("dovecot-certconf", dir_ / "conf");
  }
  support::TempDir dir_;
  support::LogCapture log_;  // an action that is missing would be logged
  panel_test::Calls calls_;
};

TEST_F(CertificateCleanup, TheSnippetsGoBeforeTheRestartAndAfterTheCommit) {
  const RecordingAction reload(brisq_panel::kReloadAction, calls_);
  const RecordingAction check(brisq_panel::kCheckAction, calls_);
  Request request("test");
  brisq_panel::PruneAfterCommit("example.org");
  EXPECT_THAT(calls_.made, IsEmpty());
  request.Commit();
  EXPECT_THAT(calls_.made, ElementsAre("dovecot.certs.check", "dovecot.reload on"));
}

TEST_F(CertificateCleanup, ASnippetThatStaysIsTold) {
  const RecordingAction check(brisq_panel::kCheckAction, calls_);  // removes nothing
  const std::string snippet = dir_.Write("conf/example.org.conf", kDangling);
  Request request("test");
  brisq_panel::PruneAfterCommit("example.org");
  request.Commit();
  EXPECT_THAT(request.Notes(),
              ElementsAre("after the commit: action panel.tls.prune failed: file: " + snippet +
                          ": is still there; brisq tls prune tries again"));
  log_.ExpectError("is still there");
}

TEST_F(CertificateCleanup, WhatIsNoDomainIsRefused) {
  const RecordingAction check(brisq_panel::kCheckAction, calls_);
  EXPECT_THROW(brisq_api::InternalCall(brisq_panel::kPruneAction, "domain=../example.org"),
               mgr_err::Error);
  EXPECT_THAT(calls_.made, IsEmpty());
}

TEST_F(CertificateCleanup, AFailedRequestPrunesNothing) {
  const RecordingAction check(brisq_panel::kCheckAction, calls_);
  {
    Request request("test");
    brisq_panel::PruneAfterCommit("example.org");
  }
  EXPECT_THAT(calls_.made, IsEmpty());
}

TEST_F(CertificateCleanup, ActionsThatNobodyOffersAreNotCalled) {
  Request request("test");
  brisq_panel::PruneAfterCommit("example.org");
  request.Commit();
  EXPECT_THAT(request.Notes(), IsEmpty());
}

// With a journal, and a database for its recoveries.
class OwedRemoval : public panel_test::PanelTest {
 protected:
  OwedRemoval() {
    mgr_cf::SetPath("dovecot-ssl-certs", dir_ / "ssl");
    mgr_cf::SetPath("dovecot-certconf", dir_ / "conf");
    journal::SetFolder(dir_ / "journal");
  }
  ~OwedRemoval() override { journal::SetFolder(""); }

  // True when the removal stays owed.
  bool Prune(const std::string& content) {
    dir_.Write("conf/example.org.conf", content);
    Request request("test");
    brisq_panel::PruneAfterCommit("example.org");
    request.Commit();
    notes_ = request.Notes();
    log_.ExpectError("action panel.tls.prune failed");
    return request.Owes();
  }

  const RecordingAction check_{brisq_panel::kCheckAction, calls_};  // removes nothing by itself
  std::vector<std::string> notes_;
};

TEST_F(OwedRemoval, StaysOwedUntilTheSnippetIsGone) {
  EXPECT_TRUE(Prune(kDangling));
  for (int times = 0; times < 3; ++times) {
    SCOPED_TRACE(times);
    EXPECT_THAT(brisq_panel::RecoverRequests(), ElementsAre(HasSubstr("is still there")));
    EXPECT_EQ(1u, journal::Ids().size());
  }
  calls_.effects[brisq_panel::kCheckAction] = [this] {
    std::filesystem::remove(dir_ / "conf/example.org.conf");
  };
  EXPECT_THAT(brisq_panel::RecoverRequests(), ElementsAre(HasSubstr("finished job")));
  EXPECT_THAT(journal::Ids(), IsEmpty());
}

// No check removes it, however often it is called.
TEST_F(OwedRemoval, OfASnippetThatNamesRealFilesIsOver) {
  EXPECT_FALSE(Prune(kSound));
  EXPECT_THAT(notes_, ElementsAre("after the commit: action panel.tls.prune failed: exists: " +
                                  (dir_ / "conf/example.org.conf") +
                                  ": names files that are there: remove it if nobody needs it"));
  EXPECT_THAT(journal::Ids(), IsEmpty());
}

}  // namespace
