#pragma once

#include "framework/reload_store.h"

namespace reloader {

/// Keeps requests and runs in the open database, where all processes of the panel see them. A
/// request that is added inside of a thread's Request is part of its transaction.
class BRISQ_API SqlReloadStore : public ReloadStore {
 public:
  /// Makes the tables when they are missing.
  SqlReloadStore();

  void Add(const ReloadRequest& request) override;
  std::vector<ReloadRequest> Requests() override;
  void Drop(const std::string& action, std::int64_t through) override;
  std::int64_t Begin(const ReloadRun& run) override;
  void End(const ReloadRun& run) override;
  std::vector<ReloadRun> Runs(const std::string& group) override;
};

}  // namespace reloader
