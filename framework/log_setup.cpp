#include "framework/log_setup.h"

#include <sys/stat.h>

#include <filesystem>
#include <system_error>

#include "framework/file_error.h"
#include "framework/log_hub.h"

namespace mgr_log {

namespace {

namespace fs = std::filesystem;

bool IsDirectory(const fs::path& path) {
  std::error_code ignored;  // mkdir tells better
  return fs::is_directory(path, ignored);
}

void MakeDirectory(const fs::path& directory) {
  if (IsDirectory(directory)) {
    return;
  }
  if (directory.has_parent_path() && directory.parent_path() != directory) {
    MakeDirectory(directory.parent_path());
  }
  // Another process may have made it in between.
  if (::mkdir(directory.c_str(), 0750) != 0 && !IsDirectory(directory)) {
    throw mgr_file::FileError(directory.string(), "mkdir");
  }
}

}  // namespace

void Configure(const Setup& setup) {
  MakeDirectory(setup.directory);
  Hub::Instance().Configure(setup);
}

std::vector<std::string> ModuleNames() { return Hub::Instance().ModuleNames(); }

void Reset() { Hub::Instance().Reset(); }

}  // namespace mgr_log
