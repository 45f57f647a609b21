#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>

#include "tests/support/log_capture.h"
#include "tests/support/sys_fault.h"
#include "tests/unit/framework/conf_operations.h"

/// The engine as a whole when every system call may be the last.
namespace {

using conf_operations::FaultOf;
using conf_operations::FaultOfNextRun;
using conf_operations::HandEdit;
using conf_operations::Operation;
using conf_operations::Operations;
using conf_operations::Place;
using conf_operations::Report;

/// What came of an operation that was killed at each of its calls.
struct Tally {
  int points = 0;
  int damaged = 0;
  int exposed = 0;  // leftovers, more than one or for everybody to read
  int unhealed = 0;
  std::string first_fault;

  int Faults() const { return damaged + exposed + unhealed; }
  void Note(int& count, const std::string& fault) {
    if (fault.empty()) return;
    ++count;
    if (first_fault.empty()) first_fault = "call " + std::to_string(points) + ": " + fault;
  }
};

std::string ExposureOf(const Place& place) {
  const auto leftovers = place.Leftovers();
  if (leftovers.size() > 2) return "leaves many files";
  for (const std::string& path : leftovers) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0 || (info.st_mode & 0007U) != 0) return path + " is open";
  }
  return "";
}

/// False when the call's number was never reached.
bool TryKill(const Operation& operation, std::size_t number, Tally& tally) {
  const Place place(operation.before, operation.linked);
  const pid_t child = ::fork();
  if (child == 0) {
    const auto act = operation.open(place.path());
    HandEdit edit(place, operation);
    support::SysFault fault;
    fault.OnCall([&](std::string_view name, std::size_t call) {
      edit.Before(name);
      if (call == number) ::raise(SIGKILL);
    });
    act();
    ::_exit(0);
  }
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  const bool killed = WIFSIGNALED(status);
  if (killed) ++tally.points;
  const auto report = killed ? Report::kNothing : Report::kMade;
  tally.Note(tally.damaged, FaultOf(place, operation, report));
  tally.Note(tally.exposed, ExposureOf(place));
  tally.Note(tally.unhealed, FaultOfNextRun(place, operation));
  return killed;
}

Tally KillAtEachCall(const Operation& operation) {
  // An edit by hand that is kept aside is told in the log.
  support::LogCapture log;
  Tally tally;
  for (std::size_t number = 1; TryKill(operation, number, tally); ++number) {
  }
  std::printf(
      "%s: calls at which a process was killed: %d, damaged: %d, exposed: %d, "
      "not healed: %d\n",
      operation.name, tally.points, tally.damaged, tally.exposed, tally.unhealed);
  log.Clear();
  return tally;
}

class ConfKillTest : public ::testing::TestWithParam<Operation> {};

TEST_P(ConfKillTest, AProcessKilledAtAnyCallLeavesTheOldFileOrTheNewOne) {
  const Tally tally = KillAtEachCall(GetParam());
  EXPECT_GE(tally.points, 20);
  EXPECT_EQ(tally.Faults(), 0) << tally.first_fault;
}

INSTANTIATE_TEST_SUITE_P(Operations, ConfKillTest, ::testing::ValuesIn(Operations()),
                         [](const auto& operation) { return std::string(operation.param.name); });

// The controls: the same kills find what becomes of a file written in place, and what a writer
// leaves that knows no exchange and sweeps nothing.
TEST(ConfKills, FindTheDamageOfAWriterInPlace) {
  EXPECT_GT(KillAtEachCall(conf_operations::WritingInPlace()).damaged, 0);
}

TEST(ConfKills, FindTheLossAndTheLeftoversOfAWriterThatRenames) {
  const Tally tally = KillAtEachCall(conf_operations::RenamingWithoutExchange());
  EXPECT_GT(tally.damaged, 0);
  EXPECT_GT(tally.unhealed, 0);
}

}  // namespace
