#include "framework/sigpipe_guard.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "framework/descriptor.h"

namespace {

using mgr_proc::SigpipeGuard;

volatile std::sig_atomic_t g_count = 0;

void Count(int) { g_count = g_count + 1; }

// A write to a pipe that nobody reads.
void WriteToNobody() {
  int ends[2];
  ASSERT_EQ(0, ::pipe2(ends, O_CLOEXEC));
  ::close(ends[0]);
  const Descriptor end(ends[1]);
  EXPECT_EQ(-1, ::write(end.get(), "x", 1));
  EXPECT_EQ(EPIPE, errno);
}

class SigpipeGuardTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_count = 0;
    struct sigaction action = {};
    action.sa_handler = &Count;
    ::sigaction(SIGPIPE, &action, &old_);
  }
  void TearDown() override { ::sigaction(SIGPIPE, &old_, nullptr); }

  static bool IsBlocked() {
    sigset_t mask;
    ::pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    return sigismember(&mask, SIGPIPE) == 1;
  }

  static bool IsPending() {
    sigset_t pending;
    ::sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
  }

 private:
  struct sigaction old_ = {};
};

TEST_F(SigpipeGuardTest, WithoutItTheSignalComes) {
  WriteToNobody();
  EXPECT_EQ(1, g_count);
}

TEST_F(SigpipeGuardTest, TakesTheSignalAwayAndRestoresTheMask) {
  {
    const SigpipeGuard guard;
    EXPECT_TRUE(IsBlocked());
    WriteToNobody();
    WriteToNobody();
  }
  EXPECT_EQ(0, g_count);
  EXPECT_FALSE(IsBlocked());
  EXPECT_FALSE(IsPending());
}

TEST_F(SigpipeGuardTest, DoesNothingWhenNothingComes) {
  { const SigpipeGuard guard; }
  EXPECT_EQ(0, g_count);
  EXPECT_FALSE(IsBlocked());
}

TEST_F(SigpipeGuardTest, LeavesASignalThatWasPendingBefore) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGPIPE);
  ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
  ::raise(SIGPIPE);
  {
    const SigpipeGuard guard;
    WriteToNobody();
  }
  EXPECT_TRUE(IsBlocked());
  EXPECT_TRUE(IsPending());
  ::pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
  EXPECT_EQ(1, g_count);
}

}  // namespace
