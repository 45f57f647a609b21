#include "framework/reload_run.h"

#include <algorithm>
#include <sstream>
#include <utility>

#include "mgr_proc.h"
#include "str.h"

namespace reloader {

namespace {

constexpr std::size_t kBrief = 500;

// A test may print the whole configuration, secrets included; what is wrong goes to standard error.
std::string ErrorsOf(const std::string& command) { return "{ " + command + "\n} 2>&1 >/dev/null"; }

std::string FailureOf(const ReloadOutcome& outcome) {
  const std::string text = BriefOutput(outcome.output);
  return text.empty() ? "exit status " + std::to_string(outcome.result) : text;
}

// Each action once, in the order of its first request, with true for a restart.
std::vector<std::pair<std::string, bool>> Merged(const std::vector<ReloadRequest>& requests) {
  std::vector<std::pair<std::string, bool>> merged;
  for (const ReloadRequest& request : requests) {
    const auto known = std::find_if(merged.begin(), merged.end(),
                                    [&](const auto& one) { return one.first == request.action; });
    if (known == merged.end()) {
      merged.emplace_back(request.action, request.hard);
    } else {
      known->second = known->second || request.hard;
    }
  }
  return merged;
}

bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }

}  // namespace

ReloadOutcome RunShellCommand(const std::string& command) {
  mgr_proc::Execute run("{ " + command + "\n} 2>&1", 2);
  return {run.Result(), run.Str()};
}

std::vector<std::string> PlanCommands(const std::vector<ReloadRequest>& requests,
                                      const std::vector<ReloadCommands>& actions) {
  std::vector<std::string> plan;
  for (const auto& [action, hard] : Merged(requests)) {
    const auto commands =
        std::find_if(actions.begin(), actions.end(),
                     [&name = action](const ReloadCommands& one) { return one.action == name; });
    const std::string& command = hard ? commands->restart : commands->reload;
    if (std::find(plan.begin(), plan.end(), command) == plan.end()) {
      plan.push_back(command);
    }
  }
  return plan;
}

void RunCommands(const std::vector<std::string>& commands, const std::string& test,
                 const CommandRunner& runner, ReloadRun& run) {
  if (!test.empty()) {
    const ReloadOutcome outcome = runner(ErrorsOf(test));
    if (outcome.result != 0) {
      run.result = outcome.result;
      run.error = "configuration refused: " + FailureOf(outcome);
      return;
    }
  }
  for (const std::string& command : commands) {
    const ReloadOutcome outcome = runner(command);
    if (outcome.result != 0) {
      run.result = outcome.result;
      run.error = FailureOf(outcome);
      return;
    }
  }
}

std::string BriefOutput(const std::string& output) {
  const std::string trimmed = str::Trim(output);
  std::istringstream lines(trimmed.substr(trimmed.size() - std::min(trimmed.size(), kBrief)));
  std::string brief;
  for (std::string line; std::getline(lines, line);) {
    std::replace_if(line.begin(), line.end(), IsControl, ' ');
    brief += (brief.empty() ? "" : "; ") + str::Trim(line);
  }
  return brief;
}

}  // namespace reloader
