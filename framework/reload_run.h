#pragma once

#include <functional>
#include <string>
#include <vector>

#include "brisq_export.h"
#include "framework/reload_store.h"

namespace reloader {

/// The commands of one action.
struct ReloadCommands {
  std::string group;
  std::string action;
  std::string delay_param;
  std::string reload;
  std::string restart;
};

/// How a command ended: 0 is good, and what it printed on both outputs.
struct ReloadOutcome {
  int result = 0;
  std::string output;
};

/// Runs one shell command line.
using CommandRunner = std::function<ReloadOutcome(const std::string& command)>;

/// Runs it through mgr_proc::Execute, within its time limit.
BRISQ_API ReloadOutcome RunShellCommand(const std::string& command);

/// The command lines that serve these requests of one group: for each action the restart when one
/// of its requests asks for that, else the reload; in the order of the first requests, equal lines
/// once.
/// @param actions  commands of the group's actions, one for each action that occurs
BRISQ_API std::vector<std::string> PlanCommands(const std::vector<ReloadRequest>& requests,
                                                const std::vector<ReloadCommands>& actions);

/// Runs the commands one by one up to the first that fails, and notes in `run` how that ended.
/// @param test  a command that is run first and must be good, since otherwise a server would be
///              given a configuration with which it can't go on; empty for none
BRISQ_API void RunCommands(const std::vector<std::string>& commands, const std::string& test,
                           const CommandRunner& runner, ReloadRun& run);

/// What a failed command printed, for one line: its end, of at most 500 bytes, with "; " between
/// lines and without control characters.
BRISQ_API std::string BriefOutput(const std::string& output);

}  // namespace reloader
