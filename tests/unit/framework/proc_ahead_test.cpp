#include "framework/proc_ahead.h"

#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "framework/pump.h"
#include "tests/unit/framework/mgr_proc_fixture.h"

namespace {

using mgr_proc::Ahead;
using mgr_proc::Execute;
using mgr_proc::SecretBuffer;

constexpr auto kPatience = std::chrono::seconds(20);

class ProcAhead : public MgrProc {
 protected:
  // Notes each start, then prints.
  const std::string command_ = Stub("echo x >> " + (directory_ / "starts") + "; echo answer");

  std::size_t Starts() const {
    return std::filesystem::exists(directory_ / "starts") ? directory_.Read("starts").size() / 2
                                                          : 0;
  }

  // As a panel hands a secret over.
  static std::unique_ptr<Ahead> Begin(const std::string& command, const std::string& text) {
    SecretBuffer input;
    input.sputn(text.data(), static_cast<std::streamsize>(text.size()));
    auto ahead = std::make_unique<Ahead>(command, input);
    EXPECT_EQ("", input.Text()) << "not wiped";
    return ahead;
  }

  static std::string Answer(const std::string& command, const std::string& text) {
    Execute run(command, 3);
    run.In() << text;
    return run.Str();
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

TEST_F(ProcAhead, OneWithInputRunsOnceAndIsTakenOverWithTheSameInputOnly) {
  const std::string echo = Stub("echo x >> " + (directory_ / "starts") + "; cat", "echo");
  const auto ahead = Begin(echo, "word\nword\n");
  ASSERT_TRUE(AwaitStart(1));
  EXPECT_EQ("other\nother\n", Answer(echo, "other\nother\n"));
  EXPECT_EQ("word\n", Answer(echo, "word\n"));
  EXPECT_EQ("", Answer(echo, ""));
  EXPECT_EQ("", Execute(echo, 2).Str());
  EXPECT_EQ("word\nword\n", Answer(echo + " -", "word\nword\n"));
  EXPECT_EQ(6u, Starts());
  EXPECT_EQ("word\nword\n", Answer(echo, "word\nword\n"));
  EXPECT_EQ(6u, Starts());
  EXPECT_EQ("word\nword\n", Answer(echo, "word\nword\n"));
  EXPECT_EQ(7u, Starts());
}

TEST_F(ProcAhead, NoneWithoutInputIsTakenOverByWhoHasSome) {
  const Ahead ahead(command_);
  ASSERT_TRUE(AwaitStart(1));
  EXPECT_EQ("answer\n", Answer(command_, ""));
  EXPECT_EQ(2u, Starts());
  EXPECT_EQ("answer\n", Execute(command_, 2).Str());
  EXPECT_EQ(2u, Starts());
}

TEST_F(ProcAhead, TheSameDoesNotRunTwiceAheadAndLikeOnesRunBesideEachOther) {
  const std::string echo = Stub("echo x >> " + (directory_ / "starts") + "; cat", "echo");
  const auto first = Begin(echo, "one");
  const auto same = Begin(echo, "one");
  const auto other = Begin(echo, "two");
  ASSERT_TRUE(AwaitStart(2));
  EXPECT_EQ("two", Answer(echo, "two"));
  EXPECT_EQ("one", Answer(echo, "one"));
  EXPECT_EQ(2u, Starts());
  const auto again = Begin(echo, "one");
  EXPECT_TRUE(AwaitStart(3)) << "the first one has been taken over";
}

TEST_F(ProcAhead, OneWithInputThatNobodyTakesOverEndsWithTheObject) {
  const std::string hung = Stub("echo $$ > " + (directory_ / "pid") + "; exec sleep 60", "hung");
  auto ahead = Begin(hung, "secret");
  const auto limit = std::chrono::steady_clock::now() + kPatience;
  std::string pid;
  while (pid.size() < 2 && std::chrono::steady_clock::now() < limit) {
    pid = std::filesystem::exists(directory_ / "pid") ? directory_.Read("pid") : "";
  }
  ASSERT_GE(pid.size(), 2u);
  pid.pop_back();
  EXPECT_TRUE(IsAlive(pid));
  ahead.reset();
  while (IsAlive(pid) && std::chrono::steady_clock::now() < limit) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_FALSE(IsAlive(pid));
}

TEST_F(ProcAhead, WhatIsSaidOfAFailureWithInputIsWhatExecuteSaysWithoutIt) {
  struct Case {
    const char* name;
    std::string command;
  };
  const Case cases[] = {
      {"a status", Stub("echo trouble >&2; exit 75", "status")},
      {"it shows the secret", Stub("cat; exit 1", "shows")},
      {"a signal", Stub("kill -KILL $$", "signal")},
      {"none there", directory_ / "none"},
      {"more than is kept", Stub("exec head -c 300000 /dev/zero", "flood")},
      {"it reads nothing", Stub("exec <&-; echo no; exit 3", "deaf")},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string alone = Answer(c.command, "s3cret\ns3cret\n");
    const auto ahead = Begin(c.command, "s3cret\ns3cret\n");
    Execute run(c.command, 3);
    run.In() << "s3cret\ns3cret\n";
    EXPECT_EQ(alone, run.Str());
    EXPECT_NE(0, run.Result());
    EXPECT_EQ(std::string::npos, run.Str().find("s3cret"));
    EXPECT_FALSE(run.In() << "more") << "input of a run that has been taken over";
  }
}

// It could not lie in the pipe, and nobody would pump it.
TEST_F(ProcAhead, SoManyRunAheadAndNoMore) {
  std::vector<std::unique_ptr<Ahead>> aheads;
  for (std::size_t number = 0; number <= Ahead::kMostWithInput; ++number) {
    aheads.push_back(Begin(command_, std::to_string(number)));
  }
  EXPECT_TRUE(AwaitStart(Ahead::kMostWithInput));
  EXPECT_EQ("answer\n", Answer(command_, std::to_string(Ahead::kMostWithInput)));
  EXPECT_EQ(Ahead::kMostWithInput + 1, Starts());
  EXPECT_EQ("answer\n", Answer(command_, "0"));
  const auto next = Begin(command_, "next");
  EXPECT_TRUE(AwaitStart(Ahead::kMostWithInput + 2)) << "one has been taken over";
}

TEST_F(ProcAhead, MoreInputThanAPipeHoldsStartsNothing) {
  const std::string count = Stub("echo x >> " + (directory_ / "starts") + "; wc -c", "count");
  const std::string fits(mgr_proc::kSentAhead, 'x');
  const auto much = Begin(count, fits + "x");
  EXPECT_EQ("65537\n", Answer(count, fits + "x"));
  EXPECT_EQ(1u, Starts());
  const auto most = Begin(count, fits);
  EXPECT_TRUE(AwaitStart(2));
  EXPECT_EQ("65536\n", Answer(count, fits));
  EXPECT_EQ(2u, Starts());
}

TEST_F(ProcAhead, ManyThreadsGetEachTheirOwn) {
  const std::string echo = Stub("echo x >> " + (directory_ / "starts") + "; exec cat", "echo");
  constexpr std::size_t kThreads = 8;
  std::vector<std::string> answers(kThreads);
  {
    std::vector<std::jthread> threads;
    for (std::size_t at = 0; at < kThreads; ++at) {
      threads.emplace_back([&, at] {
        const std::string word = "word " + std::to_string(at);
        const auto ahead = Begin(echo, word);
        answers[at] = Answer(echo, word);
      });
    }
  }
  for (std::size_t at = 0; at < kThreads; ++at) {
    EXPECT_EQ("word " + std::to_string(at), answers[at]);
  }
  EXPECT_EQ(kThreads, Starts());
}

}  // namespace
