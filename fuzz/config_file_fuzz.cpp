// Any text is either read, with every value in its range, or refused by a "config" error that names
// the file.

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "framework/config_file.h"
#include "mgr_err.h"

namespace {

void Require(bool condition) {
  if (!condition) {
    std::abort();
  }
}

// A file in memory that is written anew for each text.
class MemoryFile {
 public:
  MemoryFile() : fd_(::memfd_create("brisq.toml", MFD_CLOEXEC)) { Require(fd_ >= 0); }

  std::string Holding(const std::uint8_t* data, std::size_t size) const {
    Require(::ftruncate(fd_, 0) == 0);
    Require(::pwrite(fd_, data, size, 0) == static_cast<ssize_t>(size));
    return "/proc/self/fd/" + std::to_string(fd_);
  }

 private:
  int fd_;
};

void CheckRanges(const mgr_cf::Settings& settings) {
  Require(settings.log_level >= 0 && settings.log_level <= 9);
  Require(settings.log_rotate_mb >= 1 && settings.log_keep >= 0);
  for (const auto& [module, level] : settings.log_levels) {
    Require(level >= 0 && level <= 9);
  }
  for (const std::string* path : {&settings.database, &settings.state, &settings.log_directory}) {
    Require(path->starts_with('/') && path->find('\0') == std::string::npos);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const MemoryFile file;
  const std::string path = file.Holding(data, size);
  try {
    CheckRanges(mgr_cf::ReadSettings(path));
  } catch (const mgr_err::Error& error) {
    Require(error.type() == "config" && error.object().starts_with(path + ":"));
    Require(!error.value().empty());
  }
  return 0;
}
