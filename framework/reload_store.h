#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "brisq_export.h"

namespace reloader {

/// Times in this header are milliseconds since 1970, since several processes share them.
using Milliseconds = std::int64_t;

/// One request of an action for a reload, or for a restart.
struct ReloadRequest {
  std::int64_t id = 0;  ///< rises with each request
  std::string group;
  std::string action;
  bool hard = false;  ///< a restart
  Milliseconds at = 0;
};

/// One run of a group's commands.
struct ReloadRun {
  std::int64_t id = 0;
  std::string group;
  bool hard = false;         ///< a restart was among the commands
  std::int64_t through = 0;  ///< the last request that had been made when the run began
  Milliseconds began = 0;
  Milliseconds ended = 0;  ///< 0: it goes on, or its process died
  int failures = 0;        ///< failed runs in a row up to this one; 0 when it was good
  int result = 0;          ///< exit status of the command that failed
  std::string error;       ///< one line; empty when it was good
};

/// Where requests wait and runs are remembered. Any thread. Every operation may throw
/// mgr_err::Error, and has then changed nothing.
class BRISQ_API ReloadStore {
 public:
  /// Runs remembered for each group.
  static constexpr std::size_t kKeptRuns = 20;

  ReloadStore() = default;
  virtual ~ReloadStore();
  ReloadStore(const ReloadStore&) = delete;
  ReloadStore& operator=(const ReloadStore&) = delete;

  /// Adds a request; its id is given by the store.
  virtual void Add(const ReloadRequest& request) = 0;
  /// The requests that wait, oldest first.
  virtual std::vector<ReloadRequest> Requests() = 0;
  /// Drops the requests of an action up to and including an id.
  virtual void Drop(const std::string& action, std::int64_t through) = 0;
  /// Remembers a run that begins and returns its id.
  virtual std::int64_t Begin(const ReloadRun& run) = 0;
  /// Remembers how the run with this id ended, and forgets the group's oldest runs beyond
  /// kKeptRuns.
  virtual void End(const ReloadRun& run) = 0;
  /// The group's runs, newest first; those of all groups for an empty name.
  virtual std::vector<ReloadRun> Runs(const std::string& group) = 0;
};

/// Keeps everything in this process, which is right when there is no database.
class BRISQ_API MemoryReloadStore : public ReloadStore {
 public:
  void Add(const ReloadRequest& request) override;
  std::vector<ReloadRequest> Requests() override;
  void Drop(const std::string& action, std::int64_t through) override;
  std::int64_t Begin(const ReloadRun& run) override;
  void End(const ReloadRun& run) override;
  std::vector<ReloadRun> Runs(const std::string& group) override;

 private:
  std::mutex mutex_;
  std::int64_t last_id_ = 0;
  std::vector<ReloadRequest> requests_;
  std::vector<ReloadRun> runs_;  // newest first
};

}  // namespace reloader
