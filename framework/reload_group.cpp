#include "framework/reload_group.h"

#include <algorithm>
#include <map>
#include <utility>

#include "framework/number.h"
#include "mgr_cf.h"

namespace reloader {

namespace {

constexpr double kDefaultDelay = 2;
constexpr double kLongestDelay = 24.0 * 3600;
constexpr Milliseconds kFirstPause = 5000;
constexpr Milliseconds kLongestPause = 300000;

const ReloadCommands* Find(const std::vector<ReloadCommands>& actions, const std::string& action) {
  const auto found =
      std::find_if(actions.begin(), actions.end(),
                   [&](const ReloadCommands& commands) { return commands.action == action; });
  return found == actions.end() ? nullptr : &*found;
}

Milliseconds DelayOf(const ReloadCommands* commands) {
  const std::optional<double> seconds =
      ReadNumber(commands == nullptr ? "" : mgr_cf::GetParam(commands->delay_param));
  const double delay = seconds && *seconds >= 0 ? std::min(*seconds, kLongestDelay) : kDefaultDelay;
  return static_cast<Milliseconds>(delay * 1000);
}

Milliseconds Left(Milliseconds since, Milliseconds pause, Milliseconds now) {
  return since > now ? 0 : std::max<Milliseconds>(since + pause - now, 0);
}

bool HasFailed(const std::optional<ReloadRun>& run) {
  return run && run->ended != 0 && run->failures > 0;
}

// Adds what a run tells; runs come newest first.
void Regard(const ReloadRun& run, bool running, GroupStatus& status) {
  if (status.last) {
    return;
  }
  if (run.ended != 0) {
    status.last = run;
  } else if (running) {
    status.state = GroupStatus::State::kRunning;
  }
}

void JudgeWaiting(GroupStatus& status) {
  if (status.state == GroupStatus::State::kRunning || status.requests == 0) {
    return;
  }
  status.state = GroupStatus::State::kWaiting;
  if (HasFailed(status.last)) {
    status.state = GroupStatus::State::kFailed;
    status.next_try = status.last->ended + PauseAfter(status.last->failures);
  }
}

}  // namespace

Milliseconds PauseAfter(int failures) {
  Milliseconds pause = kFirstPause;
  for (int failure = 1; failure < failures && pause < kLongestPause; ++failure) {
    pause *= 2;
  }
  return std::min(pause, kLongestPause);
}

std::vector<Group> Group::Waiting(ReloadStore& store, const std::vector<ReloadCommands>& actions) {
  std::map<std::string, Group> groups;
  for (const ReloadRequest& request : store.Requests()) {
    if (Find(actions, request.action) != nullptr) {
      groups[request.group].requests.push_back(request);
    }
  }
  std::vector<Group> waiting;
  for (auto& [name, group] : groups) {
    group.name = name;
    const std::vector<ReloadRun> runs = store.Runs(name);
    if (!runs.empty()) {
      group.last = runs.front();
    }
    waiting.push_back(std::move(group));
  }
  return waiting;
}

const ReloadRequest* Group::Fresh() const {
  const std::int64_t through = last ? last->through : 0;
  const auto fresh = std::find_if(requests.begin(), requests.end(),
                                  [&](const ReloadRequest& one) { return one.id > through; });
  return fresh == requests.end() ? nullptr : &*fresh;
}

Milliseconds Group::DueIn(Milliseconds now, const std::vector<ReloadCommands>& actions) const {
  if (const ReloadRequest* const fresh = Fresh()) {
    return Left(fresh->at, DelayOf(Find(actions, fresh->action)), now);
  }
  return HasFailed(last) ? Left(last->ended, PauseAfter(last->failures), now) : 0;
}

ReloadRun Group::NextRun(Milliseconds now) const {
  ReloadRun run;
  run.group = name;
  run.hard = std::any_of(requests.begin(), requests.end(),
                         [](const ReloadRequest& request) { return request.hard; });
  run.through = requests.back().id;
  run.began = now;
  // Should it be cut off, then it was no good one.
  run.failures = (last ? last->failures : 0) + 1;
  return run;
}

std::vector<GroupStatus> StatusOfGroups(ReloadStore& store,
                                        const std::vector<ReloadCommands>& actions, bool running) {
  std::map<std::string, GroupStatus> groups;
  for (const ReloadCommands& commands : actions) {
    groups[commands.group];
  }
  for (const ReloadRequest& request : store.Requests()) {
    ++groups[request.group].requests;
  }
  for (const ReloadRun& run : store.Runs("")) {
    Regard(run, running, groups[run.group]);
  }
  std::vector<GroupStatus> list;
  for (auto& [name, status] : groups) {
    status.group = name;
    JudgeWaiting(status);
    list.push_back(std::move(status));
  }
  return list;
}

}  // namespace reloader
