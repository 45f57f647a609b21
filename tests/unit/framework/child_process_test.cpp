#include "framework/child_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <system_error>

namespace {

using mgr_proc::Child;
using mgr_proc::Pipe;

Descriptor Null() { return Descriptor(::open("/dev/null", O_RDWR | O_CLOEXEC)); }

void AwaitEnd(const Child& child) {
  pollfd end = {child.pidfd(), POLLIN, 0};
  ASSERT_EQ(1, ::poll(&end, 1, 10000));
}

bool NoChildIsLeft() {
  siginfo_t status = {};
  return ::waitid(P_ALL, 0, &status, WEXITED | WNOHANG | WNOWAIT) == -1 && errno == ECHILD;
}

int RunToEnd(const std::string& script) {
  const Descriptor null = Null();
  Child child({"/bin/sh", "-c", script}, null.get(), null.get(), null.get());
  AwaitEnd(child);
  return child.Collect();
}

TEST(Child, CollectGivesTheStatusOrTheSignal) {
  EXPECT_EQ(0, RunToEnd("exit 0"));
  EXPECT_EQ(77, RunToEnd("exit 77"));
  EXPECT_EQ(255, RunToEnd("exit 255"));
  EXPECT_EQ(128 + SIGKILL, RunToEnd("kill -KILL $$"));
  EXPECT_EQ(128 + SIGHUP, RunToEnd("kill -HUP $$"));
  EXPECT_TRUE(NoChildIsLeft());
}

TEST(Child, CollectGivesStatusTakenWhenSomebodyElseWasFirst) {
  const Descriptor null = Null();
  Child child({"/bin/sh", "-c", "exit 0"}, null.get(), null.get(), null.get());
  ASSERT_EQ(child.pid(), ::waitpid(child.pid(), nullptr, 0));
  AwaitEnd(child);
  EXPECT_EQ(Child::kStatusTaken, child.Collect());
}

TEST(Child, OneThatIsNotCollectedDiesWithItsObject) {
  const Descriptor null = Null();
  pid_t pid = -1;
  {
    const Child child({"/bin/sleep", "60"}, null.get(), null.get(), null.get());
    pid = child.pid();
    EXPECT_EQ(0, ::kill(pid, 0));
  }
  EXPECT_EQ(-1, ::kill(pid, 0));
  EXPECT_TRUE(NoChildIsLeft());
}

TEST(Child, KillCollectsOnceAndMayComeAgain) {
  const Descriptor null = Null();
  Child child({"/bin/sleep", "60"}, null.get(), null.get(), null.get());
  child.Kill();
  EXPECT_TRUE(NoChildIsLeft());
  child.Kill();
}

TEST(Child, OneThatDiesLateIsCollectedByALaterStart) {
  const Descriptor null = Null();
  for (int count = 0; count < 20; ++count) {
    Child child({"/bin/sleep", "60"}, null.get(), null.get(), null.get());
    child.Kill(0);
  }
  siginfo_t ended = {};
  for (int count = 0; count < 1000 && !NoChildIsLeft(); ++count) {
    // Waits for a child that has ended without collecting it.
    if (::waitid(P_ALL, 0, &ended, WEXITED | WNOWAIT) == 0) {
      RunToEnd("exit 0");
    }
  }
  EXPECT_TRUE(NoChildIsLeft());
}

TEST(Child, EndGroupReturnsAtOnceWhenNobodyIsLeft) {
  const Descriptor null = Null();
  Child child({"/bin/true"}, null.get(), null.get(), null.get());
  AwaitEnd(child);
  EXPECT_EQ(0, child.Collect());
  timespec before = {};
  timespec after = {};
  ::clock_gettime(CLOCK_MONOTONIC, &before);
  child.EndGroup();
  ::clock_gettime(CLOCK_MONOTONIC, &after);
  EXPECT_LT((after.tv_sec - before.tv_sec) * 1000 + (after.tv_nsec - before.tv_nsec) / 1000000, 90);
}

TEST(Child, GetsTheDescriptorsItWasGiven) {
  const Pipe in = Pipe::Make();
  const Pipe out = Pipe::Make();
  const Pipe err = Pipe::Make();
  ASSERT_EQ(2, ::write(in.write.get(), "x\n", 2));
  Child child({"/bin/sh", "-c", "read -r a; echo \"$a\"; echo e >&2"}, in.read.get(),
              out.write.get(), err.write.get());
  AwaitEnd(child);
  EXPECT_EQ(0, child.Collect());
  char text[8];
  EXPECT_EQ("x\n", std::string(
                       text, static_cast<std::size_t>(::read(out.read.get(), text, sizeof(text)))));
  EXPECT_EQ("e\n", std::string(
                       text, static_cast<std::size_t>(::read(err.read.get(), text, sizeof(text)))));
}

TEST(Child, ProgramThatIsMissingIsNamedInTheError) {
  const Descriptor null = Null();
  try {
    const Child child({"/no/such/program"}, null.get(), null.get(), null.get());
    FAIL() << "it started";
  } catch (const std::system_error& error) {
    EXPECT_EQ(ENOENT, error.code().value());
    EXPECT_STREQ("can't start /no/such/program: No such file or directory", error.what());
  }
  EXPECT_TRUE(NoChildIsLeft());
}

TEST(Pipe, IsClosedInChildren) {
  const Pipe pipe = Pipe::Make();
  EXPECT_EQ(FD_CLOEXEC, ::fcntl(pipe.read.get(), F_GETFD));
  EXPECT_EQ(FD_CLOEXEC, ::fcntl(pipe.write.get(), F_GETFD));
}

TEST(Pipe, EndsLieAboveTheStandardDescriptorsAndAreClosedInChildren) {
  const pid_t host = ::fork();
  if (host == 0) {
    for (const int fd : {0, 1, 2}) {
      ::close(fd);
    }
    const Pipe first = Pipe::Make();
    const Pipe second = Pipe::Make();
    bool good = true;
    for (const Descriptor* end : {&first.read, &first.write, &second.read, &second.write}) {
      good = good && end->get() > 2 && (::fcntl(end->get(), F_GETFD) & FD_CLOEXEC) != 0;
    }
    good = good && ::fcntl(0, F_GETFD) < 0 && ::fcntl(1, F_GETFD) < 0 && ::fcntl(2, F_GETFD) < 0;
    ::_exit(good ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(host, ::waitpid(host, &status, 0));
  EXPECT_EQ(0, status);
}

}  // namespace
