#include "cached_config.h"

namespace {

// Files that stay parsed while nobody uses them.
constexpr int kDocuments = 20;

}  // namespace

BaseCachedConfigEvent::~BaseCachedConfigEvent() = default;

void BaseCachedConfigEvent::_AfterSave(ConfRef& ref, ConfCache::SaveReason& reason) {
  AfterSave(ref, reason);
}

mgr_thread::SafeLock& BaseCachedConfigEvent::GetInitLock() {
  static mgr_thread::SafeLock lock;
  return lock;
}

template <>
MgrConfCache* BaseCachedConfig<MgrConfCache>::Instance() {
  // Plug-ins' configuration objects may use it until the process ends, so it is never destroyed.
  static auto* const cache = new MgrConfCache(kDocuments);
  return cache;
}
