#include "periodic.h"

#include <map>
#include <mutex>
#include <utility>

#include "framework/scheduler.h"

namespace periodic {

namespace {

struct Registry {
  std::mutex mutex;
  std::map<std::pair<std::string, std::string>, std::string> period_params;
};

Registry& TheRegistry() {
  static Registry registry;
  return registry;
}

}  // namespace

void RegisterAction(const std::string& action, const std::string& params,
                    const std::string& period_param) {
  Registry& registry = TheRegistry();
  const std::lock_guard<std::mutex> hold(registry.mutex);
  registry.period_params[{action, params}] = period_param;
}

std::vector<Entry> Registered() {
  Registry& registry = TheRegistry();
  const std::lock_guard<std::mutex> hold(registry.mutex);
  std::vector<Entry> entries;
  for (const auto& [key, period_param] : registry.period_params) {
    entries.push_back({key.first, key.second, period_param});
  }
  return entries;
}

void Reset() {
  Registry& registry = TheRegistry();
  const std::lock_guard<std::mutex> hold(registry.mutex);
  registry.period_params.clear();
}

}  // namespace periodic
