#include "reloader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "framework/config_file.h"
#include "framework/reload_queue.h"
#include "mgr_err.h"
#include "tests/support/temp_dir.h"

namespace {

using reloader::GroupStatus;
using reloader::Reloader;

class ReloaderTest : public ::testing::Test {
 protected:
  ReloaderTest() { reloader::Queue::OfProcess().SetStore(nullptr); }
  ~ReloaderTest() override { mgr_cf::Reset(); }

  std::string Note(const char* word) const { return "echo " + std::string(word) + " >> " + file_; }

  support::TempDir directory_;
  std::string file_ = directory_ / "done";
  Reloader action_{"mail.reload", "mail.server.reload", "Delay", Note("reload"), Note("restart")};
};

TEST_F(ReloaderTest, ActionIsKnownByItsNameForTheAdministratorAlone) {
  EXPECT_EQ("mail.server.reload", action_.name());
  EXPECT_EQ(0xE0000000u, action_.access());
  EXPECT_THROW(Reloader("mail.reload", "mail.server.reload", "Delay", "", ""), mgr_err::Error);
}

struct Call {
  const char* name;
  std::vector<const char*> params;
  const char* done;
};

TEST_F(ReloaderTest, CallsAskForAReloadOrARestart) {
  const Call calls[] = {
      {"reload", {""}, "reload\n"},
      {"restart", {"hard=on"}, "restart\n"},
      {"hard is not on", {"hard=off"}, "reload\n"},
      {"another parameter", {"soft=on"}, "reload\n"},
      {"merged", {"", "hard=on", ""}, "restart\n"},
  };
  for (const Call& call : calls) {
    SCOPED_TRACE(call.name);
    for (const char* const params : call.params) {
      EXPECT_EQ("", brisq_api::InternalCall("mail.server.reload", params));
    }
    EXPECT_EQ(1u, reloader::RunDue().size());
    EXPECT_EQ(call.done, directory_.Read("done"));
    directory_.Write("done", "");
  }
}

TEST_F(ReloaderTest, CallRunsNothingItself) {
  brisq_api::InternalCall("mail.server.reload", "");
  EXPECT_FALSE(std::ifstream(file_).good());
  const std::vector<GroupStatus> status = reloader::Status();
  const auto mine = std::find_if(status.begin(), status.end(), [](const GroupStatus& group) {
    return group.group == "mail.reload";
  });
  ASSERT_NE(status.end(), mine);
  EXPECT_EQ(GroupStatus::State::kWaiting, mine->state);
  EXPECT_EQ(1u, mine->requests);
}

TEST_F(ReloaderTest, ActionThatIsGoneIsForgotten) {
  { const Reloader other("mail.reload", "other.reload", "Delay", Note("other"), ""); }
  reloader::Queue::OfProcess().Ask("mail.reload", "other.reload", false);
  EXPECT_TRUE(reloader::RunDue().empty());
  EXPECT_THROW(brisq_api::InternalCall("other.reload", ""), mgr_err::Error);
}

}  // namespace
