#include "framework/reload_store.h"

#include <algorithm>
#include <iterator>

namespace reloader {

ReloadStore::~ReloadStore() = default;

void MemoryReloadStore::Add(const ReloadRequest& request) {
  const std::lock_guard<std::mutex> hold(mutex_);
  requests_.push_back(request);
  requests_.back().id = ++last_id_;
}

std::vector<ReloadRequest> MemoryReloadStore::Requests() {
  const std::lock_guard<std::mutex> hold(mutex_);
  return requests_;
}

void MemoryReloadStore::Drop(const std::string& action, std::int64_t through) {
  const std::lock_guard<std::mutex> hold(mutex_);
  std::erase_if(requests_, [&](const ReloadRequest& request) {
    return request.action == action && request.id <= through;
  });
}

std::int64_t MemoryReloadStore::Begin(const ReloadRun& run) {
  const std::lock_guard<std::mutex> hold(mutex_);
  runs_.insert(runs_.begin(), run);
  runs_.front().id = ++last_id_;
  return last_id_;
}

void MemoryReloadStore::End(const ReloadRun& run) {
  const std::lock_guard<std::mutex> hold(mutex_);
  std::replace_if(
      runs_.begin(), runs_.end(), [&](const ReloadRun& kept) { return kept.id == run.id; }, run);
  std::size_t count = 0;
  std::erase_if(
      runs_, [&](const ReloadRun& kept) { return kept.group == run.group && ++count > kKeptRuns; });
}

std::vector<ReloadRun> MemoryReloadStore::Runs(const std::string& group) {
  const std::lock_guard<std::mutex> hold(mutex_);
  std::vector<ReloadRun> runs;
  std::copy_if(runs_.begin(), runs_.end(), std::back_inserter(runs),
               [&](const ReloadRun& run) { return group.empty() || run.group == group; });
  return runs;
}

}  // namespace reloader
