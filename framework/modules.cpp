#include "framework/modules.h"

#include <dlfcn.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>

#include "framework/conf_stamp.h"
#include "framework/module_registry.h"
#include "framework/plugin_probe.h"
#include "framework/safe_program.h"
#include "framework/shared_library.h"
#include "mgr_err.h"
#include "mgr_file.h"

namespace brisq_api {

namespace {

constexpr int kLoadLimitSeconds = 20;
constexpr int kTrials = 3;  // of one plug-in, whose file changes meanwhile

// Empty when the plug-in is loaded and has registered something.
std::string LoadFile(const std::string& file) {
  const ModuleRegistry::Loading loading(file);
  if (::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL) == nullptr) {
    return LoaderWords(file);
  }
  if (!ModuleRegistry::Instance().HasRegistered(file)) {
    return "is no plug-in: it registers no module";
  }
  return "";
}

bool IsLoaded(const std::string& file) {
  void* handle = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NOLOAD);
  if (handle == nullptr) {
    return false;
  }
  ::dlclose(handle);
  return true;
}

std::vector<std::string> LibrariesIn(const std::string& folder) {
  std::vector<std::string> files;
  mgr_file::Dir entries(folder);
  while (entries.Read()) {
    if (entries.HasExt(".so")) {
      files.push_back(entries.FullName());
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

// The files that the paths stand for; a folder that can't be read is in the place of its files.
std::vector<PluginReport> FilesOf(const std::vector<std::string>& files_or_folders) {
  std::vector<PluginReport> files;
  for (const std::string& path : files_or_folders) {
    std::error_code error;
    if (!std::filesystem::is_directory(path, error)) {
      files.push_back({path, ""});
      continue;
    }
    try {
      for (const std::string& file : LibrariesIn(path)) {
        files.push_back({file, ""});
      }
    } catch (const mgr_err::Error& failure) {
      files.push_back({path, failure.what()});
    }
  }
  return files;
}

// An absolute path: a name without a slash would be looked for among the system's libraries.
std::string Absolute(const std::string& file) { return std::filesystem::absolute(file).string(); }

void RefuseUnsafeFiles(const std::vector<PluginReport>& files) {
  for (const PluginReport& report : files) {
    mgr_proc::RefuseUnsafe(Absolute(report.file));
  }
}

}  // namespace

// The trial comes first: an exception can't pass through the loader, so that it ends the process as
// a crash does.
class PluginLoading::Trial {
 public:
  explicit Trial(const std::string& file) : file_(Absolute(file)), is_loaded_(IsLoaded(file_)) {
    if (!is_loaded_) {
      Begin();
    }
  }

  // Loads a plug-in that is sound. Empty when it is loaded, else why not. A file that has come in
  // the place of the one that was tried is tried first.
  std::string Load() {
    if (is_loaded_) {
      return "is loaded already";
    }
    for (int trials = 0; trials < kTrials; ++trials) {
      const std::string fault = run_->Answer();
      if (StampAt(file_) == tried_) {
        return fault.empty() ? LoadFile(file_) : fault;
      }
      Begin();
    }
    return "is replaced again and again while it is tried";
  }

 private:
  void Begin() {
    tried_ = StampAt(file_);
    run_.emplace([this] { return LoadFile(file_); }, kLoadLimitSeconds);
  }

  const std::string file_;
  const bool is_loaded_;
  ConfStamp tried_;
  std::optional<TrialRun> run_;
};

PluginLoading::PluginLoading(const std::vector<std::string>& files_or_folders)
    : files_(FilesOf(files_or_folders)) {
  RefuseUnsafeFiles(files_);
  if (files_.empty() || !files_.front().error.empty()) {
    return;
  }
  try {
    first_ = std::make_unique<Trial>(files_.front().file);
  } catch (const std::exception&) {
    // Loading tries it again, and tells.
  }
}

PluginLoading::~PluginLoading() = default;

std::vector<PluginReport> PluginLoading::Load() {
  for (PluginReport& report : files_) {
    if (!report.error.empty()) {
      continue;
    }
    try {
      const auto trial = first_ ? std::move(first_) : std::make_unique<Trial>(report.file);
      report.error = trial->Load();
    } catch (const std::exception& error) {
      report.error = error.what();
    }
  }
  return std::move(files_);
}

std::vector<PluginReport> LoadPlugins(const std::vector<std::string>& files_or_folders) {
  return PluginLoading(files_or_folders).Load();
}

std::vector<PluginReport> BuildModules(const std::string& category) {
  return ModuleRegistry::Instance().Build(category);
}

}  // namespace brisq_api
