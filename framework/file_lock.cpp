#include "framework/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <thread>

#include "framework/file_error.h"

namespace {

constexpr std::chrono::milliseconds kStep{10};

// flock(2) that never waits; true when the lock has been taken.
bool TryLock(const Descriptor& file, const std::string& path) {
  int result = -1;
  do {
    result = ::flock(file.get(), LOCK_EX | LOCK_NB);
  } while (result != 0 && errno == EINTR);
  if (result != 0 && errno != EWOULDBLOCK) {
    throw mgr_file::FileError(path, "flock");
  }
  return result == 0;
}

}  // namespace

std::optional<FileLock> FileLock::Take(const std::string& path,
                                       std::chrono::milliseconds patience) {
  Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!file) {
    throw mgr_file::FileError(path, "open");
  }
  const auto end = std::chrono::steady_clock::now() + patience;
  while (!TryLock(file, path)) {
    // The system knows no lock on files that waits for a limited time.
    if (std::chrono::steady_clock::now() >= end) {
      return std::nullopt;
    }
    std::this_thread::sleep_for(kStep);
  }
  return FileLock(std::move(file));
}
