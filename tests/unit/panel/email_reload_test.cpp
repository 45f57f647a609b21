#include "panel/email_reload.h"

#include "framework/reload_queue.h"
#include "framework/sql_reload_store.h"
#include "mgr_cf.h"
#include "tests/unit/panel/panel_fixture.h"

namespace brisq_panel {
namespace {

class EmailReloadTest : public panel_test::PanelTest {
 protected:
  void Ask() { reloader::Queue::OfProcess().Ask("email.reload", "test.reload", false); }
};

TEST_F(EmailReloadTest, RequestsLieInTheDatabaseWhereOtherProcessesSeeThem) {
  const ReloadRequests requests(dir_.path());
  Ask();
  const auto stored = reloader::SqlReloadStore().Requests();
  ASSERT_EQ(1u, stored.size());
  EXPECT_EQ("test.reload", stored[0].action);
}

TEST_F(EmailReloadTest, AfterwardsRequestsStayInTheProcess) {
  { const ReloadRequests requests(dir_.path()); }
  Ask();
  EXPECT_EQ(0u, reloader::SqlReloadStore().Requests().size());
}

TEST_F(EmailReloadTest, TheConfigurationTestHasItsDefault) {
  const ReloadRequests requests(dir_.path());
  EXPECT_EQ("doveconf -nx", mgr_cf::GetPath("dovecot-configtest"));
}

TEST_F(EmailReloadTest, AFailingConfigurationTestLeavesTheServerAlone) {
  log_.ExpectError("reload of email.reload failed");
  const ReloadRequests requests(dir_.path());
  mgr_cf::SetPathDefault("dovecot-configtest", "echo line 12 is bad >&2; false");
  const std::string ran = dir_ / "ran";
  const email::EmailReload action("email.reload", "test.reload", "EmailReloadDelay", "touch " + ran,
                                  "touch " + ran);
  Ask();
  const auto runs = reloader::RunDue();
  ASSERT_EQ(1u, runs.size());
  EXPECT_THAT(runs[0].error, testing::HasSubstr("line 12 is bad"));
  EXPECT_FALSE(mgr_file::Exists(ran));
}

}  // namespace
}  // namespace brisq_panel
