#include "framework/proc_ahead.h"

#include <chrono>
#include <thread>

#include "tests/unit/framework/mgr_proc_fixture.h"

namespace {

using mgr_proc::Ahead;
using mgr_proc::Execute;

constexpr auto kPatience = std::chrono::seconds(20);

class ProcAhead : public MgrProc {
 protected:
  // Notes each start, then prints.
  const std::string command_ = Stub("echo x >> " + (directory_ / "starts") + "; echo answer");

  std::size_t Starts() const {
    return std::filesystem::exists(directory_ / "starts") ? directory_.Read("starts").size() / 2
                                                          : 0;
  }

  bool AwaitStart(std::size_t number) const {
    const auto limit = std::chrono::steady_clock::now() + kPatience;
    while (Starts() < number && std::chrono::steady_clock::now() < limit) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return Starts() == number;
  }
};

TEST_F(ProcAhead, RunsBeforeAnybodyAsksAndOnce) {
  const Ahead ahead(command_);
  ASSERT_TRUE(AwaitStart(1));
  Execute run(command_, 2);
  EXPECT_EQ("answer\n", run.Str());
  EXPECT_EQ(0, run.Result());
  EXPECT_EQ(1u, Starts());
}

TEST_F(ProcAhead, IsTakenOverOnceAndByTheSameCommandInTheSameModeOnly) {
  const Ahead ahead(command_);
  ASSERT_TRUE(AwaitStart(1));
  EXPECT_EQ("answer\n", Execute(command_ + " -l", 2).Str());
  EXPECT_EQ(2u, Starts());
  EXPECT_EQ("answer\n", Execute(command_, 3).Str());
  EXPECT_EQ(3u, Starts());
  EXPECT_EQ("answer\n", Execute(command_, 2).Str());
  EXPECT_EQ(3u, Starts());
  EXPECT_EQ("answer\n", Execute(command_, 2).Str());
  EXPECT_EQ(4u, Starts());
}

TEST_F(ProcAhead, OneThatNobodyTakesOverEndsWithTheObject) {
  const std::string hung = Stub("echo $$ > " + (directory_ / "pid") + "; exec sleep 60", "hung");
  std::string pid;
  {
    const Ahead ahead(hung);
    const auto limit = std::chrono::steady_clock::now() + kPatience;
    while (pid.empty() && std::chrono::steady_clock::now() < limit) {
      pid = std::filesystem::exists(directory_ / "pid") ? directory_.Read("pid") : "";
    }
    ASSERT_FALSE(pid.empty());
    pid.pop_back();
    EXPECT_TRUE(IsAlive(pid));
  }
  const auto limit = std::chrono::steady_clock::now() + kPatience;
  while (IsAlive(pid) && std::chrono::steady_clock::now() < limit) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_FALSE(IsAlive(pid));
}

TEST_F(ProcAhead, WhatIsSaidOfAFailureIsWhatExecuteSaysWithoutIt) {
  struct Case {
    const char* name;
    std::string command;
  };
  const Case cases[] = {
      {"a status", Stub("echo trouble; exit 75", "status")},
      {"a signal", Stub("kill -KILL $$", "signal")},
      {"none there", directory_ / "none"},
      {"a folder", directory_.path()},
      {"others may replace it", directory_.MakeFolder("open") + "/stub"},
  };
  std::filesystem::copy_file("/bin/true", directory_ / "open/stub");
  std::filesystem::permissions(directory_ / "open", std::filesystem::perms::all);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Execute alone(c.command, 2);
    const std::string text = alone.Str();
    const Ahead ahead(c.command);
    Execute run(c.command, 2);
    EXPECT_EQ(text, run.Str());
    EXPECT_EQ(alone.Result(), run.Result());
    EXPECT_NE(0, run.Result());
  }
}

// The limit counts from the question: so much time may have passed before.
TEST_F(ProcAhead, OneThatHangsIsEndedAtTheLimitOfTheQuestion) {
  SetLimit("0.2");
  const std::string hung = Stub("exec sleep 60", "hung");
  const Ahead ahead(hung);
  Execute run(hung, 2);
  EXPECT_EQ(124, run.Result());
  EXPECT_EQ("no answer in 0.2 s, ended", run.Str());
}

TEST_F(ProcAhead, MoreOutputThanAPipeHoldsArrivesWhole) {
  const std::string flood = Stub("exec head -c 300000 /dev/zero", "flood");
  const Ahead ahead(flood);
  Execute run(flood, 2);
  EXPECT_EQ(300000u, run.Str().size());
  EXPECT_EQ(0, run.Result());
}

}  // namespace
