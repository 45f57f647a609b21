// Children that take too long, and those that leave somebody behind.

#include <sys/resource.h>

#include <csignal>
#include <fstream>
#include <string>
#include <vector>

#include "tests/unit/framework/mgr_proc_fixture.h"

namespace {

// What a run may take beyond its limit on a loaded machine.
constexpr double kSlack = kSanitized ? 2.0 : 0.5;

// Content of a file that a child writes, once it is there.
std::string Await(const std::string& file) {
  for (const Stopwatch watch; watch.Seconds() < 10;) {
    std::ifstream stream(file);
    std::string word;
    if (std::getline(stream, word) && !stream.eof()) {
      return word;
    }
  }
  ADD_FAILURE() << "never written: " << file;
  return {};
}

// True when the process ends within a second.
bool Ends(const std::string& pid) {
  for (const Stopwatch watch; watch.Seconds() < 1;) {
    if (!IsAlive(pid)) {
      return true;
    }
  }
  return false;
}

struct Slow {
  const char* name;
  const char* body;
  std::size_t input;  // bytes
  const char* output;
};

TEST_F(MgrProc, ChildThatTakesTooLongIsEndedWithAllItsGroup) {
  const std::vector<Slow> cases = {
      {"hangs", "exec sleep 60", 0, ""},
      {"ignores SIGTERM", "trap '' TERM INT HUP; echo up; while :; do sleep 60; done", 0, "up\n"},
      {"hangs with a huge input unread", "exec sleep 60", 3000000, ""},
      {"waits for a child of its own", "sleep 60 & wait", 0, ""},
      {"closes its outputs and hangs", "exec >&- 2>&- <&-; exec sleep 60", 3000000, ""},
      {"stops itself", "kill -STOP $$; echo no", 0, ""},
      {"says half a line", "printf half; exec sleep 60", 0, "half\n"},
      {"leaves its group and hangs",
       "exec python3 -IS -c 'import os, time; os.setpgid(0, os.getpgid(os.getppid())); "
       "time.sleep(60)'",
       0, ""},
      {"hangs after errors", "echo trouble >&2; exec sleep 60", 0, "trouble\n"},
  };
  SetLimit("0.3");
  for (const Slow& child : cases) {
    SCOPED_TRACE(child.name);
    const Stopwatch watch;
    mgr_proc::Execute run(Stub("echo $$ > " + directory_ / "pid" + "\n" + child.body), 3);
    run.In() << std::string(child.input, 'x');
    EXPECT_EQ(124, run.Result());
    EXPECT_LT(watch.Seconds(), 0.3 + kSlack);
    EXPECT_EQ(std::string(child.output) + "no answer in 0.3 s, ended", run.Str());
    EXPECT_TRUE(Ends(Await(directory_ / "pid")));
  }
}

TEST_F(MgrProc, ChildThatFloodsForEverIsEndedInTime) {
  SetLimit("0.3");
  for (const char* const redirect : {"", ">&2", "| tee /dev/stderr"}) {
    SCOPED_TRACE(redirect);
    const Stopwatch watch;
    mgr_proc::Execute run(Stub(std::string("cat /dev/zero ") + redirect), 3);
    EXPECT_EQ(124, run.Result());
    EXPECT_LT(watch.Seconds(), 0.3 + kSlack);
  }
}

TEST_F(MgrProc, GroupOfAChildThatIsEndedDiesWithIt) {
  SetLimit("0.3");
  mgr_proc::Execute run(Stub("sh -c 'trap \"\" TERM; echo $$ > " + directory_ / "grandchild" +
                             "; while :; do sleep 1; done' & wait"),
                        3);
  EXPECT_EQ(124, run.Result());
  EXPECT_TRUE(Ends(Await(directory_ / "grandchild")));
}

TEST_F(MgrProc, LimitIsAPositiveNumberOfSecondsOrTheDefault) {
  for (const char* const limit : {"", "0", "-1", "0.0", "abc", "0.05x", " 0.05", "nan", "-inf"}) {
    SCOPED_TRACE(limit);
    SetLimit(limit);
    mgr_proc::Execute run("sleep 0.15", 3);
    EXPECT_EQ(0, run.Result());
  }
  for (const char* const limit : {"1e300", "inf", "99999999999999999999", "3000000"}) {
    SCOPED_TRACE(limit);
    SetLimit(limit);
    mgr_proc::Execute run("true", 3);
    EXPECT_EQ(0, run.Result());
  }
}

TEST_F(MgrProc, GrandchildOnTheOutputDelaysNothingAndIsEnded) {
  for (const int mode : {2, 3}) {
    SCOPED_TRACE(mode);
    const std::string stub =
        Stub("echo before\nsleep 60 &\necho $! > " + directory_ / "pid" + "\necho after\nexit 5");
    const Stopwatch watch;
    mgr_proc::Execute run(stub, mode);
    EXPECT_EQ(5, run.Result());
    EXPECT_LT(watch.Seconds(), kSlack);
    EXPECT_EQ("before\nafter\n", run.Str());
    EXPECT_TRUE(Ends(Await(directory_ / "pid")));
  }
}

TEST_F(MgrProc, GrandchildThatFloodsTheOutputDelaysNothing) {
  const Stopwatch watch;
  mgr_proc::Execute run(
      Stub("setsid sh -c 'echo $$ > " + directory_ / "pid" +
           "; exec cat /dev/zero' &\nuntil [ -s " + directory_ / "pid" + " ]; do :; done"),
      2);
  EXPECT_EQ(0, run.Result());
  EXPECT_LT(watch.Seconds(), kSlack);
  // The pipe has no reader any more.
  EXPECT_TRUE(Ends(Await(directory_ / "pid")));
}

// A service's starter ends while the service is still on its way into a session of its own.
TEST_F(MgrProc, DaemonThatLeavesTheGroupLateLivesOn) {
  const Stopwatch watch;
  mgr_proc::Execute run(Stub("(sleep 0.02; exec setsid sh -c 'echo $$ > " + directory_ / "pid" +
                             "; exec sleep 60') </dev/null >/dev/null 2>&1 &"),
                        3);
  EXPECT_EQ(0, run.Result());
  EXPECT_LT(watch.Seconds(), kSlack);
  const std::string pid = Await(directory_ / "pid");
  EXPECT_FALSE(Ends(pid));
  ASSERT_FALSE(pid.empty());
  EXPECT_EQ(0, ::kill(std::stoi(pid), SIGKILL));
  EXPECT_TRUE(Ends(pid));
}

TEST_F(MgrProc, ChildWithoutSurvivorsCostsNoPause) {
  mgr_proc::Execute first("true", 3);
  first.Result();
  const Stopwatch watch;
  for (int count = 0; count < 20; ++count) {
    mgr_proc::Execute run("true", 3);
    run.Result();
  }
  EXPECT_LT(watch.Seconds(), 20 * 0.09);
}

}  // namespace
