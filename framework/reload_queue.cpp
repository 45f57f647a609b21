#include "framework/reload_queue.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <set>
#include <utility>

#include "framework/rehearsal.h"
#include "framework/request.h"
#include "mgr_cf.h"
#include "mgr_err.h"
#include "mgr_log.h"

namespace reloader {

namespace {

mgr_log::Module log_channel("reload", "brisq");

constexpr char kServeLock[] = "serve.lock";
constexpr char kRunLock[] = "reload.lock";
constexpr std::chrono::milliseconds kPoll{1000};
constexpr std::chrono::milliseconds kRunPatience{60000};
// Others look whether a server runs by taking its lock for a moment.
constexpr std::chrono::milliseconds kServePatience{1000};

void LogRun(const ReloadRun& run, std::size_t requests) {
  const char* const kind = run.hard ? "restart" : "reload";
  if (run.failures > 0 && log_channel.Check(mgr_log::kError)) {
    log_channel.Write(mgr_log::kError, "%s of %s failed (%d): %s", kind, run.group.c_str(),
                      run.result, run.error.c_str());
  } else if (run.failures == 0 && log_channel.Check(mgr_log::kInfo)) {
    log_channel.Write(mgr_log::kInfo, "%s of %s done for %zu requests", kind, run.group.c_str(),
                      requests);
  }
}

void LogLeft() {
  if (log_channel.Check(mgr_log::kWarning)) {
    log_channel.Write(mgr_log::kWarning,
                      "another process reloads for too long: left to a later one");
  }
}

void LogUnstored(const std::string& action, const std::exception& error) {
  if (log_channel.Check(mgr_log::kError)) {
    log_channel.Write(mgr_log::kError, "request of %s not stored yet: %s", action.c_str(),
                      error.what());
  }
}

void DropServed(ReloadStore& store, const Group& group, std::int64_t through) {
  std::set<std::string> actions;
  for (const ReloadRequest& request : group.requests) {
    actions.insert(request.action);
  }
  for (const std::string& action : actions) {
    store.Drop(action, through);
  }
}

}  // namespace

Queue::Queue(CommandRunner runner, Clock clock)
    : runner_(std::move(runner)),
      clock_(std::move(clock)),
      store_(std::make_shared<MemoryReloadStore>()) {}

Queue::~Queue() = default;

Queue& Queue::OfProcess() {
  // Never destroyed: actions leave it while the process ends.
  static auto& queue = *new Queue;
  return queue;
}

Milliseconds Queue::SystemClock() {
  const auto since_1970 = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(since_1970).count();
}

void Queue::SetStore(std::shared_ptr<ReloadStore> store) {
  if (!store) {
    store = std::make_shared<MemoryReloadStore>();
  }
  const std::lock_guard<std::mutex> hold(mutex_);
  store_ = std::move(store);
}

void Queue::SetStateFolder(const std::string& folder) {
  const std::lock_guard<std::mutex> hold(mutex_);
  state_folder_ = folder;
}

void Queue::SetConfigTest(const std::string& group, const std::string& path_key) {
  const std::lock_guard<std::mutex> hold(mutex_);
  tests_[group] = path_key;
}

void Queue::Enter(const ReloadCommands& commands) {
  const std::lock_guard<std::mutex> hold(mutex_);
  actions_[commands.action] = commands;
}

void Queue::Leave(const std::string& action) {
  const std::lock_guard<std::mutex> hold(mutex_);
  actions_.erase(action);
}

void Queue::Ask(const std::string& group, const std::string& action, bool hard) {
  if (Rehearsal* const rehearsal = Rehearsal::Current()) {
    return rehearsal->Note(std::string(hard ? "restart" : "reload") + " of the mail server");
  }
  const ReloadRequest request = {0, group, action, hard, clock_()};
  try {
    Store()->Add(request);
    if (::Request* const current = ::Request::Current()) {
      current->OnRollback("request of " + action, [this, request] {
        Keep(request);
        Wake();
      });
    }
  } catch (const std::exception& error) {
    LogUnstored(action, error);
    Keep(request);
  }
  Wake();
}

std::vector<ReloadRun> Queue::RunDue() {
  if (Rehearsal::Current() != nullptr) {
    return {};
  }
  StoreKept();
  const std::string serve_lock = LockPath(kServeLock);
  if (!serve_lock.empty() && !FileLock::Take(serve_lock)) {
    return {};
  }
  const std::optional<RunGate::Pass> pass = gate_.Enter(LockPath(kRunLock), kRunPatience);
  std::vector<ReloadRun> runs;
  if (!pass) {
    LogLeft();
    return runs;
  }
  const std::shared_ptr<ReloadStore> store = Store();
  const std::vector<ReloadCommands> actions = Actions();
  for (const Group& group : Group::Waiting(*store, actions)) {
    if (group.Fresh() != nullptr || group.DueIn(clock_(), actions) == 0) {
      runs.push_back(Run(*store, group, actions));
    }
  }
  return runs;
}

std::chrono::milliseconds Queue::RunByClock() {
  StoreKept();
  const std::optional<RunGate::Pass> pass = gate_.Enter(LockPath(kRunLock), {});
  if (!pass) {
    return kPoll;
  }
  const std::shared_ptr<ReloadStore> store = Store();
  const std::vector<ReloadCommands> actions = Actions();
  std::chrono::milliseconds next = kPoll;
  for (const Group& group : Group::Waiting(*store, actions)) {
    const std::chrono::milliseconds due(group.DueIn(clock_(), actions));
    if (due.count() == 0) {
      Run(*store, group, actions);
    }
    next = std::min(next, due);
  }
  return next;
}

void Queue::Wait(std::chrono::milliseconds most) {
  std::unique_lock<std::mutex> hold(mutex_);
  wake_.wait_for(hold, most, [this] { return woken_; });
  woken_ = false;
}

void Queue::Wake() {
  const std::lock_guard<std::mutex> hold(mutex_);
  woken_ = true;
  wake_.notify_all();
}

std::optional<FileLock> Queue::TakeServeLock() const {
  const std::string path = LockPath(kServeLock);
  if (path.empty()) {
    throw mgr_err::Error("internal", "reloader::Queue", "a server needs a state folder");
  }
  return FileLock::Take(path, kServePatience);
}

std::vector<GroupStatus> Queue::Status() {
  StoreKept();
  const bool running = !gate_.Enter(LockPath(kRunLock), {});
  return StatusOfGroups(*Store(), Actions(), running);
}

std::shared_ptr<ReloadStore> Queue::Store() const {
  const std::lock_guard<std::mutex> hold(mutex_);
  return store_;
}

std::vector<ReloadCommands> Queue::Actions() const {
  const std::lock_guard<std::mutex> hold(mutex_);
  std::vector<ReloadCommands> actions;
  for (const auto& [name, commands] : actions_) {
    actions.push_back(commands);
  }
  return actions;
}

void Queue::Keep(const ReloadRequest& request) {
  const std::lock_guard<std::mutex> hold(mutex_);
  const auto [kept, fresh] = kept_.emplace(request.action, request);
  kept->second.hard = kept->second.hard || request.hard;
}

std::string Queue::StoreKept() {
  const std::lock_guard<std::mutex> alone(storing_);
  std::unique_lock<std::mutex> hold(mutex_);
  const std::map<std::string, ReloadRequest> kept = std::exchange(kept_, {});
  const std::shared_ptr<ReloadStore> store = store_;
  hold.unlock();
  for (const auto& [action, request] : kept) {
    try {
      store->Add(request);
    } catch (const std::exception& error) {
      LogUnstored(action, error);
      Keep(request);
    }
  }
  hold.lock();
  return kept_.empty() ? "" : kept_.begin()->first;
}

void Queue::RequireStored() {
  const std::string kept = StoreKept();
  if (!kept.empty()) {
    throw mgr_err::Error("later", "request of " + kept, "can't be stored");
  }
}

ReloadRun Queue::Run(ReloadStore& store, const Group& group,
                     const std::vector<ReloadCommands>& actions) {
  ReloadRun run = group.NextRun(clock_());
  run.id = store.Begin(run);
  RunCommands(PlanCommands(group.requests, actions), TestOf(group.name), runner_, run);
  run.ended = clock_();
  if (run.result == 0) {
    run.failures = 0;
  }
  store.End(run);
  if (run.result == 0) {
    DropServed(store, group, run.through);
  }
  LogRun(run, group.requests.size());
  return run;
}

std::string Queue::TestOf(const std::string& group) const {
  const std::lock_guard<std::mutex> hold(mutex_);
  const auto key = tests_.find(group);
  return key == tests_.end() ? "" : mgr_cf::GetPath(key->second);
}

std::string Queue::LockPath(const char* name) const {
  const std::lock_guard<std::mutex> hold(mutex_);
  return state_folder_.empty() ? "" : state_folder_ + "/" + name;
}

std::vector<ReloadRun> RunDue() { return Queue::OfProcess().RunDue(); }

std::vector<GroupStatus> Status() { return Queue::OfProcess().Status(); }

}  // namespace reloader
