#include "framework/plugin_probe.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <functional>
#include <stdexcept>

namespace {

using std::chrono::steady_clock;

constexpr int kLimit = 30;

std::string RunInChild(const std::function<std::string()>& attempt, int limit_seconds) {
  return TrialRun(attempt, limit_seconds).Answer();
}

std::size_t OpenDescriptors() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(entries, {}));
}

TEST(RunInChild, ReturnsTheTextOfTheAttempt) {
  for (const std::string& text : {std::string(), std::string("text"), std::string(300000, 'x')}) {
    SCOPED_TRACE(text.size());
    EXPECT_EQ(text, RunInChild([&text] { return text; }, kLimit));
  }
}

TEST(RunInChild, WhatTheAttemptDoesStaysInTheChild) {
  int touched = 0;
  RunInChild(
      [&touched] {
        touched = 1;
        return std::string();
      },
      kLimit);
  EXPECT_EQ(0, touched);
}

TEST(RunInChild, TellsHowAChildEnded) {
  struct Case {
    const char* name;
    void (*end)();
    const char* text;
  };
  const Case cases[] = {
      {"abort", [] { std::abort(); }, "ends the process by signal 6 (Aborted)"},
      {"kill", [] { std::raise(SIGKILL); }, "ends the process by signal 9 (Killed)"},
      {"exit", [] { ::_exit(0); }, "ends the process with status 0"},
      {"exit 3", [] { ::_exit(3); }, "ends the process with status 3"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.text, RunInChild(
                          [&c] {
                            c.end();
                            return std::string("came back");
                          },
                          kLimit));
  }
}

void Throw() { throw std::runtime_error("no way"); }
void ThrowWithoutWay() noexcept { Throw(); }

TEST(RunInChild, TellsWhatWasThrown) {
  struct Case {
    const char* name;
    void (*fail)();
    const char* text;
  };
  const Case cases[] = {
      {"out of the attempt", [] { throw std::runtime_error("no licence"); },
       "throws an exception that nobody catches: no licence"},
      {"where nothing can be thrown", [] { ThrowWithoutWay(); },
       "throws an exception that nobody catches: no way"},
      {"a number", [] { throw 42; },
       "throws something that is no exception and that nobody catches"},
      {"terminate without an exception", [] { std::terminate(); },
       "ends the process by signal 6 (Aborted)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.text, RunInChild(
                          [&c] {
                            c.fail();
                            return std::string("came back");
                          },
                          kLimit));
  }
}

TEST(RunInChild, AChildThatHangsIsEnded) {
  const auto begin = steady_clock::now();
  EXPECT_EQ("does not return within 1 s", RunInChild(
                                              [] {
                                                while (true) {
                                                  ::pause();
                                                }
                                                return std::string();
                                              },
                                              1));
  EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(10));
}

// A grandchild keeps the pipe open; the answer is there all the same.
TEST(RunInChild, AGrandchildDoesNotDelayTheAnswer) {
  const auto begin = steady_clock::now();
  const std::string text = RunInChild(
      [] {
        if (::fork() == 0) {
          ::alarm(20);
          while (true) {
            ::pause();
          }
        }
        return std::string("done");
      },
      kLimit);
  EXPECT_EQ("done", text);
  EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(10));
}

TEST(RunInChild, OutputOfTheAttemptGoesNowhere) {
  testing::internal::CaptureStdout();
  RunInChild(
      [] {
        std::printf("noise");
        std::fflush(stdout);
        return std::string();
      },
      kLimit);
  EXPECT_EQ("", testing::internal::GetCapturedStdout());
}

TEST(RunInChild, LeavesNeitherDescriptorsNorZombies) {
  const std::size_t before = OpenDescriptors();
  for (int i = 0; i < 20; ++i) {
    RunInChild([] { return std::string("x"); }, kLimit);
  }
  EXPECT_EQ(before, OpenDescriptors());
  EXPECT_EQ(-1, ::waitpid(-1, nullptr, WNOHANG));
  EXPECT_EQ(ECHILD, errno);
}

TEST(TrialRun, TheCallerGoesOnMeanwhile) {
  int ends[2];
  ASSERT_EQ(0, ::pipe(ends));
  TrialRun trial(
      [&ends] {
        char byte = 0;
        return std::string(::read(ends[0], &byte, 1) == 1 ? "told to go on" : "lost");
      },
      kLimit);
  EXPECT_EQ(1, ::write(ends[1], "x", 1));
  EXPECT_EQ("told to go on", trial.Answer());
  ::close(ends[0]);
  ::close(ends[1]);
}

TEST(TrialRun, OneThatIsNotAskedLeavesNeitherDescriptorsNorZombies) {
  const std::size_t before = OpenDescriptors();
  for (const bool hangs : {false, true}) {
    const TrialRun trial(
        [hangs] {
          while (hangs) {
            ::pause();
          }
          return std::string();
        },
        kLimit);
  }
  EXPECT_EQ(before, OpenDescriptors());
  EXPECT_EQ(-1, ::waitpid(-1, nullptr, WNOHANG));
  EXPECT_EQ(ECHILD, errno);
}

// A host that ignores SIGCHLD never gets to see an exit status.
TEST(RunInChild, WorksInAHostThatIgnoresItsChildren) {
  const auto old = std::signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ("text", RunInChild([] { return std::string("text"); }, kLimit));
  EXPECT_NE("", RunInChild(
                    [] {
                      std::raise(SIGKILL);
                      return std::string();
                    },
                    kLimit));
  std::signal(SIGCHLD, old);
}

}  // namespace
