#include "panel/certificate_cleanup.h"

#include "brisq_api.h"
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
  support::LogCapture log_;  // an action that is missing would be logged
  panel_test::Calls calls_;
};

TEST_F(CertificateCleanup, TheSnippetsGoBeforeTheRestartAndAfterTheCommit) {
  const RecordingAction reload(brisq_panel::kReloadAction, calls_);
  const RecordingAction check(brisq_panel::kCheckAction, calls_);
  Request request("test");
  brisq_panel::PruneAfterCommit();
  EXPECT_THAT(calls_.made, IsEmpty());
  request.Commit();
  EXPECT_THAT(calls_.made, ElementsAre("dovecot.certs.check", "dovecot.reload on"));
}

TEST_F(CertificateCleanup, AFailedRequestPrunesNothing) {
  const RecordingAction check(brisq_panel::kCheckAction, calls_);
  {
    Request request("test");
    brisq_panel::PruneAfterCommit();
  }
  EXPECT_THAT(calls_.made, IsEmpty());
}

TEST_F(CertificateCleanup, ActionsThatNobodyOffersAreNotCalled) {
  Request request("test");
  brisq_panel::PruneAfterCommit();
  request.Commit();
  EXPECT_THAT(request.Notes(), IsEmpty());
}

}  // namespace
