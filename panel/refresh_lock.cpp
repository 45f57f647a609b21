#include "panel/refresh_lock.h"

#include <mutex>

#include "mgr_err.h"
#include "mgr_file.h"

namespace brisq_panel {

namespace {

std::mutex g_mutex;

std::string& Folder() {
  static std::string& folder = *new std::string;
  return folder;
}

std::string LockPath() {
  const std::lock_guard lock(g_mutex);
  return mgr_file::ConcatPath(Folder(), "refresh.lock");
}

FileLock TakeLock() {
  std::optional<FileLock> lock = FileLock::Take(LockPath());
  if (!lock) {
    throw mgr_err::Error("locked", "refresh", "another refresh is running");
  }
  return std::move(*lock);
}

}  // namespace

void RefreshLock::SetFolder(const std::string& folder) {
  const std::lock_guard lock(g_mutex);
  Folder() = folder;
}

RefreshLock::RefreshLock() : lock_(TakeLock()) {}

}  // namespace brisq_panel
