#include "framework/due.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "brisq_api.h"
#include "framework/request.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_dir.h"

namespace {

using testing::ElementsAre;

class DueTest : public testing::Test {
 protected:
  std::string Append(const std::string& word) const {
    return "echo " + word + " >>" + directory / "out";
  }

  support::TempDir directory;
  support::LogCapture log;
};

TEST_F(DueTest, CommandsRunInTheOrderInWhichTheyWereQueued) {
  std::string expected;
  for (int i = 0; i < 20; ++i) {
    due::QueueCommand(Append(std::to_string(i)));
    expected += std::to_string(i) + "\n";
  }
  EXPECT_EQ(20U, due::QueuedCommands());
  due::RunQueuedCommands();
  EXPECT_EQ(expected, directory.Read("out"));
  EXPECT_EQ(0U, due::QueuedCommands());
}

TEST_F(DueTest, EqualCommandsAreNotMerged) {
  due::QueueCommand(Append("same"));
  due::QueueCommand(Append("same"));
  due::RunQueuedCommands();
  EXPECT_EQ("same\nsame\n", directory.Read("out"));
}

TEST_F(DueTest, ACommandThatFailsIsLoggedAndTheRestRuns) {
  due::QueueCommand("exit 3");
  due::QueueCommand("/nonexistent/doveadm reload");
  due::QueueCommand(Append("after"));
  due::RunQueuedCommands();
  EXPECT_EQ("after\n", directory.Read("out"));
  log.ExpectError("command failed: exit 3: exit status 3");
  log.ExpectError("command failed: /nonexistent/doveadm reload: exit status 127");
}

TEST_F(DueTest, ACommandIsRunByTheShell) {
  due::QueueCommand("x='a  b'; printf '%s' \"$x\" | tr a-z A-Z >" + directory / "out");
  due::RunQueuedCommands();
  EXPECT_EQ("A  B", directory.Read("out"));
}

TEST_F(DueTest, ACommandThatWasDoneIsLogged) {
  due::QueueCommand("true");
  due::RunQueuedCommands();
  EXPECT_THAT(log.Messages("brisq"), testing::Contains("info due: command done: true"));
}

TEST_F(DueTest, OutsideOfARequestACommandIsQueuedAtOnce) {
  brisq_api::ExecuteLater(Append("direct"));
  due::RunQueuedCommands();
  EXPECT_EQ("direct\n", directory.Read("out"));
}

TEST_F(DueTest, CommandsOfARequestWaitForItsCommit) {
  Request request("test");
  brisq_api::ExecuteLater(Append("one"));
  brisq_api::ExecuteLater(Append("two"));
  EXPECT_EQ(0U, due::QueuedCommands());
  request.Commit();
  EXPECT_EQ(2U, due::QueuedCommands());
  due::RunQueuedCommands();
  EXPECT_EQ("one\ntwo\n", directory.Read("out"));
}

// Two runners at once must not change the order, nor run a command twice or beside another.
TEST_F(DueTest, RunnersInSeveralThreadsRunOneCommandAtATime) {
  std::string expected;
  for (int i = 0; i < 30; ++i) {
    const std::string number = std::to_string(i);
    due::QueueCommand(Append("begin" + number) + "; " + Append("end" + number));
    expected += "begin" + number + "\nend" + number + "\n";
  }
  std::vector<std::thread> runners;
  for (int i = 0; i < 4; ++i) {
    runners.emplace_back([] { due::RunQueuedCommands(); });
  }
  for (std::thread& runner : runners) {
    runner.join();
  }
  EXPECT_EQ(expected, directory.Read("out"));
}

}  // namespace
