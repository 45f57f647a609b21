#include "panel/held_signals.h"

#include <gtest/gtest.h>

#include <csignal>
#include <memory>

#include "mgr_err.h"

namespace {

using brisq_panel::HeldSignals;

volatile std::sig_atomic_t g_seen = 0;

class Counted {
 public:
  explicit Counted(int signal) : signal_(signal) {
    g_seen = 0;
    before_ = std::signal(signal, [](int) { g_seen = g_seen + 1; });
  }
  ~Counted() { std::signal(signal_, before_); }
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;

 private:
  int signal_;
  void (*before_)(int);
};

TEST(HeldSignalsTest, WhatEndsACommandWaitsForItsEnd) {
  struct Case {
    const char* name;
    int signal;
  };
  for (const Case& c : {Case{"INT", SIGINT}, Case{"TERM", SIGTERM}, Case{"HUP", SIGHUP}}) {
    SCOPED_TRACE(c.name);
    const Counted counted(c.signal);
    {
      const HeldSignals held;
      std::raise(c.signal);
      EXPECT_EQ(0, g_seen);
    }
    EXPECT_EQ(1, g_seen);
  }
}

TEST(HeldSignalsTest, QuitIsNotHeld) {
  const Counted counted(SIGQUIT);
  const HeldSignals held;
  std::raise(SIGQUIT);
  EXPECT_EQ(1, g_seen);
}

TEST(HeldSignalsTest, AnInnerOneEndsNothingOfTheOuter) {
  const Counted counted(SIGTERM);
  const HeldSignals outer;
  { const HeldSignals inner; }
  std::raise(SIGTERM);
  EXPECT_EQ(0, g_seen);
  sigset_t pending;
  sigpending(&pending);
  EXPECT_EQ(1, sigismember(&pending, SIGTERM));
}

TEST(HeldSignalsTest, TheLastToEndLetsGoThoughItBeganFirstOrLast) {
  for (const bool first_ends_first : {true, false}) {
    SCOPED_TRACE(first_ends_first);
    const Counted counted(SIGINT);
    auto first = std::make_unique<HeldSignals>();
    auto last = std::make_unique<HeldSignals>();
    std::raise(SIGINT);
    (first_ends_first ? first : last).reset();
    EXPECT_EQ(0, g_seen);
    (first_ends_first ? last : first).reset();
    EXPECT_EQ(1, g_seen);
    std::raise(SIGINT);
    EXPECT_EQ(2, g_seen) << "none is held any more";
  }
}

TEST(HeldSignalsTest, OneThatHasComeIsSeenToWait) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    SCOPED_TRACE(signal);
    const Counted counted(signal);
    EXPECT_FALSE(HeldSignals::IsOneWaiting());
    const HeldSignals held;
    EXPECT_FALSE(HeldSignals::IsOneWaiting());
    HeldSignals::GiveUpIfOneWaits("work");
    std::raise(signal);
    EXPECT_TRUE(HeldSignals::IsOneWaiting());
    EXPECT_THROW(HeldSignals::GiveUpIfOneWaits("work"), mgr_err::Error);
  }
}

// As it is below nohup(1).
TEST(HeldSignalsTest, OneThatTheProcessIgnoresDoesNotWait) {
  const auto before = std::signal(SIGHUP, SIG_IGN);
  {
    const HeldSignals held;
    std::raise(SIGHUP);
    EXPECT_FALSE(HeldSignals::IsOneWaiting());
  }
  std::signal(SIGHUP, before);
}

TEST(HeldSignalsTest, WhatOthersBlockIsNotWaitedFor) {
  const Counted counted(SIGTERM);
  sigset_t blocked;
  sigset_t before;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &blocked, &before);
  std::raise(SIGTERM);
  EXPECT_FALSE(HeldSignals::IsOneWaiting());
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  EXPECT_EQ(1, g_seen);
}

}  // namespace
