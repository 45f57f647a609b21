#include "framework/unsynced_dirs.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "framework/file_steps.h"
#include "framework/sys.h"

void UnsyncedDirs::Add(int directory, const std::string& path) {
  struct stat state {};
  if (sys::FStat(directory, &state) != 0) {
    sys::Fail("stat", path);
  }
  const std::pair key(state.st_dev, state.st_ino);
  if (directories_.contains(key)) {
    return;
  }
  Descriptor own(sys::FCntl(directory, F_DUPFD_CLOEXEC, 0));
  if (!own) {
    sys::Fail("dup", path);
  }
  directories_.emplace(key, Directory{std::move(own), path});
  if (directories_.size() == kMost) {
    Sync();
  }
}

void UnsyncedDirs::Sync() {
  const auto directories = std::exchange(directories_, {});
  for (const auto& [key, directory] : directories) {
    file_steps::SyncDirectory(directory.fd.get(), directory.path);
  }
}
