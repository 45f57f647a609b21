#include "framework/reload_run.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "framework/config_file.h"

namespace {

using reloader::ReloadCommands;
using reloader::ReloadOutcome;
using reloader::ReloadRequest;
using reloader::ReloadRun;

struct PlanCase {
  const char* name;
  std::vector<std::pair<const char*, bool>> requests;  // action, hard
  std::vector<std::string> plan;
};

TEST(PlanCommands, ServesEachActionOnceAndARestartWins) {
  const std::vector<ReloadCommands> actions = {
      {"g", "a", "", "reload a", "restart a"},
      {"g", "b", "", "reload b", "restart b"},
      {"g", "twin", "", "reload a", "restart twin"},
  };
  const PlanCase cases[] = {
      {"nothing", {}, {}},
      {"one reload", {{"a", false}}, {"reload a"}},
      {"reloads merge", {{"a", false}, {"a", false}, {"a", false}}, {"reload a"}},
      {"restart after reload", {{"a", false}, {"a", true}}, {"restart a"}},
      {"restart before reload", {{"a", true}, {"a", false}}, {"restart a"}},
      {"two actions in the order of their first requests",
       {{"b", false}, {"a", false}, {"b", true}},
       {"restart b", "reload a"}},
      {"equal commands once", {{"twin", false}, {"a", false}}, {"reload a"}},
  };
  for (const PlanCase& one : cases) {
    SCOPED_TRACE(one.name);
    std::vector<ReloadRequest> requests;
    for (const auto& [action, hard] : one.requests) {
      requests.push_back({0, "g", action, hard, 0});
    }
    EXPECT_EQ(one.plan, reloader::PlanCommands(requests, actions));
  }
}

// Answers commands in order and notes them.
struct Script {
  std::vector<ReloadOutcome> outcomes;
  std::vector<std::string> seen = {};

  reloader::CommandRunner Runner() {
    return [this](const std::string& command) {
      seen.push_back(command);
      return outcomes.at(seen.size() - 1);
    };
  }
};

TEST(RunCommands, RunsAllWhenAllAreGood) {
  Script script{{{0, "done"}, {0, ""}}};
  ReloadRun run;
  reloader::RunCommands({"one", "two"}, "", script.Runner(), run);
  EXPECT_EQ((std::vector<std::string>{"one", "two"}), script.seen);
  EXPECT_EQ(0, run.result);
  EXPECT_EQ("", run.error);
}

TEST(RunCommands, StopsAtTheFirstThatFailsAndKeepsItsWords) {
  Script script{{{75, "Fatal: Dovecot is not running\n"}, {0, ""}}};
  ReloadRun run;
  reloader::RunCommands({"one", "two"}, "", script.Runner(), run);
  EXPECT_EQ(1u, script.seen.size());
  EXPECT_EQ(75, run.result);
  EXPECT_EQ("Fatal: Dovecot is not running", run.error);
}

TEST(RunCommands, FailureWithoutAWordIsNamedByItsStatus) {
  Script script{{{3, " \n"}}};
  ReloadRun run;
  reloader::RunCommands({"one"}, "", script.Runner(), run);
  EXPECT_EQ("exit status 3", run.error);
}

TEST(RunCommands, NothingRunsWhenTheConfigurationIsRefused) {
  Script script{{{89, "Error in configuration file /x.conf line 4: Unknown setting: y\n"}}};
  ReloadRun run;
  reloader::RunCommands({"one"}, "doveconf -nx", script.Runner(), run);
  ASSERT_EQ(1u, script.seen.size());
  EXPECT_NE(std::string::npos, script.seen[0].find("doveconf -nx"));
  EXPECT_EQ(89, run.result);
  EXPECT_EQ("configuration refused: Error in configuration file /x.conf line 4: Unknown setting: y",
            run.error);
}

TEST(RunCommands, RunsBehindATestThatIsGood) {
  Script script{{{0, ""}, {0, ""}}};
  ReloadRun run;
  reloader::RunCommands({"one"}, "test", script.Runner(), run);
  EXPECT_EQ("one", script.seen.at(1));
  EXPECT_EQ(0, run.result);
}

TEST(RunCommands, OnlyErrorsOfTheTestAreKept) {
  ReloadRun run;
  reloader::RunCommands({"true"}, "echo secret; echo 'line 4: wrong' >&2; exit 89",
                        reloader::RunShellCommand, run);
  EXPECT_EQ("configuration refused: line 4: wrong", run.error);
}

struct ShellCase {
  const char* name;
  const char* command;
  int result;
  const char* output;
};

TEST(RunShellCommand, GivesBothOutputsAndTheStatus) {
  const ShellCase cases[] = {
      {"good", "echo a; echo b >&2", 0, "a\nb\n"},  {"failure", "echo no >&2; exit 75", 75, "no\n"},
      {"list", "false || echo then", 0, "then\n"},  {"comment", "echo a # b", 0, "a\n"},
      {"two lines", "echo a\necho b", 0, "a\nb\n"},
  };
  for (const ShellCase& one : cases) {
    SCOPED_TRACE(one.name);
    const ReloadOutcome outcome = reloader::RunShellCommand(one.command);
    EXPECT_EQ(one.result, outcome.result);
    EXPECT_EQ(one.output, outcome.output);
  }
}

TEST(RunShellCommand, CommandThatHangsIsEnded) {
  mgr_cf::SetParam("ExecTimeout", "0.2");
  const ReloadOutcome outcome = reloader::RunShellCommand("exec sleep 60");
  mgr_cf::Reset();
  EXPECT_EQ(124, outcome.result);
  EXPECT_EQ("no answer in 0.2 s, ended", outcome.output);
}

TEST(BriefOutput, IsOneCleanLine) {
  EXPECT_EQ("", reloader::BriefOutput(" \n\t "));
  EXPECT_EQ("a; b", reloader::BriefOutput("\na\n  b \n"));
  EXPECT_EQ("a [31mb", reloader::BriefOutput("a\033[31mb"));
  EXPECT_EQ("a b", reloader::BriefOutput(std::string("a\0b", 3)));
}

TEST(BriefOutput, KeepsTheEndOfALongText) {
  const std::string brief = reloader::BriefOutput(std::string(2000, 'x') + " the end");
  EXPECT_EQ(500u, brief.size());
  EXPECT_EQ(" the end", brief.substr(492));
}

}  // namespace
