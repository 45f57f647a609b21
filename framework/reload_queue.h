#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "brisq_export.h"
#include "framework/file_lock.h"
#include "framework/reload_group.h"
#include "framework/reload_run.h"
#include "framework/reload_store.h"
#include "framework/run_gate.h"

namespace reloader {

/// The requests of all reload actions, and their runs.
///
/// The central rule: a run serves the requests that were stored before it began, and drops them
/// only when it was good. So each request is followed by a run that began after it, whatever
/// happens to processes meanwhile. All processes with one store and one state folder make one
/// queue: at most one run goes on among them. Any thread.
class BRISQ_API Queue {
 public:
  /// Milliseconds since 1970.
  using Clock = std::function<Milliseconds()>;

  /// A queue of its own, with a store in memory.
  explicit Queue(CommandRunner runner = RunShellCommand, Clock clock = SystemClock);
  ~Queue();
  Queue(const Queue&) = delete;
  Queue& operator=(const Queue&) = delete;

  /// The one to which the actions of this process belong.
  static Queue& OfProcess();
  static Milliseconds SystemClock();

  /// The store used from now on, null for a fresh one in memory; what the old one holds stays
  /// there.
  void SetStore(std::shared_ptr<ReloadStore> store);

  /// Folder for the locks between processes, "serve.lock" and "reload.lock"; empty for none.
  void SetStateFolder(const std::string& folder);

  /// Has the command line that the path key holds at that time run before each run of the group; an
  /// empty one turns it off. When it fails the server is left alone and the run has failed.
  void SetConfigTest(const std::string& group, const std::string& path_key);

  /// Makes an action's commands known, in place of earlier ones.
  void Enter(const ReloadCommands& commands);
  /// Forgets an action; its requests wait until a process knows it.
  void Leave(const std::string& action);

  /// Stores a request: inside of a thread's Request as a part of that, and once more when that is
  /// rolled back, since files were changed and changed back. One that can't be stored is logged,
  /// kept in this process, and stored when it can be.
  void Ask(const std::string& group, const std::string& action, bool hard);

  /// Stores what Ask could only keep.
  /// @throws mgr_err::Error "later": a request is in this process only, and would end with it
  void RequireStored();

  /// For a process that is about to end: runs what waits, whatever the delay, and returns the runs.
  /// Leaves everything to the server when there is one, and a failed run that no new request
  /// followed to its next time. Another process's run is waited for, up to a minute.
  /// @throws mgr_err::Error of the store; "file" for a lock
  std::vector<ReloadRun> RunDue();

  /// For a server: runs what is due by the clock and returns how long nothing else will be, at most
  /// a second: by then another process may have stored a request.
  /// @throws as RunDue
  std::chrono::milliseconds RunByClock();

  /// Waits until Ask or Wake is called, or was called since the last Wait, or the time is over.
  void Wait(std::chrono::milliseconds most);
  void Wake();

  /// The lock that shows other processes that a server runs; nothing when there is one already.
  /// @throws mgr_err::Error "file"; "internal" without a state folder
  std::optional<FileLock> TakeServeLock() const;

  /// One entry for each group that this process or the store knows, in the order of their names.
  /// @throws mgr_err::Error of the store; "file" for a lock
  std::vector<GroupStatus> Status();

 private:
  std::shared_ptr<ReloadStore> Store() const;
  std::vector<ReloadCommands> Actions() const;
  void Keep(const ReloadRequest& request);
  // Stores what Ask could only keep; the action of a request that stays kept, empty for none.
  std::string StoreKept();
  ReloadRun Run(ReloadStore& store, const Group& group, const std::vector<ReloadCommands>& actions);
  std::string TestOf(const std::string& group) const;
  std::string LockPath(const char* name) const;

  CommandRunner runner_;
  Clock clock_;
  RunGate gate_;
  std::mutex storing_;        // while requests are between kept_ and the store; taken before mutex_
  mutable std::mutex mutex_;  // of all below
  std::shared_ptr<ReloadStore> store_;
  std::string state_folder_;
  std::map<std::string, std::string> tests_;  // path keys by group
  std::map<std::string, ReloadCommands> actions_;
  std::map<std::string, ReloadRequest> kept_;  // not stored yet, merged, by action
  bool woken_ = false;
  std::condition_variable wake_;
};

/// Queue::RunDue of this process's queue.
BRISQ_API std::vector<ReloadRun> RunDue();
/// Queue::Status of this process's queue.
BRISQ_API std::vector<GroupStatus> Status();

}  // namespace reloader
