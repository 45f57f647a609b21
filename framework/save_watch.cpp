#include "framework/save_watch.h"

#include <mutex>

namespace {

struct Watches {
  std::mutex mutex;
  std::vector<SaveWatch*> list;
};

Watches& TheWatches() {
  static Watches& watches = *new Watches;  // files may be saved while the process ends
  return watches;
}

}  // namespace

SaveWatch::SaveWatch() {
  Watches& watches = TheWatches();
  const std::lock_guard lock(watches.mutex);
  watches.list.push_back(this);
}

SaveWatch::~SaveWatch() {
  Watches& watches = TheWatches();
  const std::lock_guard lock(watches.mutex);
  std::erase(watches.list, this);
}

void SaveWatch::Saved(const std::string& path, const ConfStamp& before, const ConfStamp& after) {
  Watches& watches = TheWatches();
  const std::lock_guard lock(watches.mutex);
  for (SaveWatch* watch : watches.list) {
    watch->saves_.push_back({path, before, after});
  }
}

bool SaveWatch::Explains(const std::string& path, const ConfStamp& from,
                         const ConfStamp& to) const {
  const std::lock_guard lock(TheWatches().mutex);
  ConfStamp at = from;
  for (const Save& save : saves_) {
    if (save.path == path && save.before == at) {
      at = save.after;
    }
  }
  return at == to;
}
