#include "panel/certificate_cleanup.h"

#include "brisq_api.h"
#include "framework/config_file.h"
#include "framework/request.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

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
  const std::string snippet = dir_.Write("conf/example.org.conf", "");
  Request request("test");
  brisq_panel::PruneAfterCommit("example.org");
  request.Commit();
  EXPECT_THAT(request.Notes(),
              ElementsAre("after the commit: removal of " + snippet + " failed: file: " + snippet +
                          ": is still there; brisq tls prune tries again"));
  log_.ExpectError("is still there");
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

}  // namespace
