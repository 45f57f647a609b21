#include "panel/held_signals.h"

#include <gtest/gtest.h>

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

}  // namespace
