#include "panel/system_dirs.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>

#include "framework/request.h"
#include "framework/sys.h"

namespace brisq_panel {

namespace {

// Missing directories on the way to `path`, itself included, innermost first.
std::vector<std::string> Missing(const std::string& path) {
  std::vector<std::string> missing;
  std::string at = path;
  while (!at.empty() && !mgr_file::Exists(at)) {
    missing.push_back(at);
    at = mgr_file::SplitPath(at).first;
  }
  return missing;
}

}  // namespace

std::vector<std::string> MakeDirectories(const std::string& path, const mgr_file::Attrs& parents,
                                         const mgr_file::Attrs& last) {
  std::vector<std::string> missing = Missing(path);
  std::reverse(missing.begin(), missing.end());
  std::vector<std::string> made;
  try {
    for (const std::string& directory : missing) {
      mgr_file::MkDir(directory, directory == path ? last : parents);
      made.push_back(directory);
    }
  } catch (...) {
    RemoveDirectories(made);
    throw;
  }
  return made;
}

std::vector<journal::Step> StepsOfMaking(const std::string& path) {
  std::vector<journal::Step> steps;
  for (const std::string& directory : Missing(path)) {
    steps.insert(steps.begin(),
                 {"sysdir", {{"path", directory}, {"what", "directory " + directory + " made"}}});
  }
  return steps;
}

void RemoveDirectories(const std::vector<std::string>& directories) noexcept {
  std::for_each(directories.rbegin(), directories.rend(), [](const std::string& directory) {
    if (sys::RmDir(AT_FDCWD, directory.c_str()) != 0 && errno != ENOENT && errno != ENOTEMPTY) {
      Request::KeepCurrentEntry();
    }
  });
}

}  // namespace brisq_panel
