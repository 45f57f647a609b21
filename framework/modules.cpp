#include "framework/modules.h"

#include <dlfcn.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <memory>
#include <system_error>

#include "framework/demangle.h"
#include "framework/module_registry.h"
#include "framework/plugin_probe.h"
#include "mgr_err.h"
#include "mgr_file.h"

namespace brisq_api {

namespace {

constexpr int kLoadLimitSeconds = 20;

// The loader's words, without the file's name and with a missing symbol in readable form.
std::string LoaderError(const std::string& file) {
  const char* words = ::dlerror();
  std::string text = words == nullptr ? "can't be loaded" : words;
  if (text.starts_with(file + ": ")) {
    text.erase(0, file.size() + 2);
  }
  const std::string label = "undefined symbol: ";
  const std::size_t at = text.find(label);
  if (at != std::string::npos) {
    text += " (" + Demangled(text.substr(at + label.size())) + ")";
  }
  return text;
}

// Empty when the plug-in is loaded and has registered something.
std::string Load(const std::string& file) {
  const ModuleRegistry::Loading loading(file);
  if (::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL) == nullptr) {
    return LoaderError(file);
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

// The test comes first: an exception can't pass through the loader, so that it ends the process as
// a crash does.
std::string LoadIfSound(const std::string& file) {
  if (IsLoaded(file)) {
    return "is loaded already";
  }
  const std::string fault = RunInChild([&file] { return Load(file); }, kLoadLimitSeconds);
  return fault.empty() ? Load(file) : fault;
}

PluginReport LoadPlugin(const std::string& file) {
  try {
    // An absolute path: a name without a slash would be looked for among the system's libraries.
    return {file, LoadIfSound(std::filesystem::absolute(file).string())};
  } catch (const std::exception& error) {
    return {file, error.what()};
  }
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

}  // namespace

std::vector<PluginReport> LoadPlugins(const std::vector<std::string>& files_or_folders) {
  std::vector<PluginReport> reports;
  for (const std::string& path : files_or_folders) {
    std::error_code error;
    if (!std::filesystem::is_directory(path, error)) {
      reports.push_back(LoadPlugin(path));
      continue;
    }
    try {
      for (const std::string& file : LibrariesIn(path)) {
        reports.push_back(LoadPlugin(file));
      }
    } catch (const mgr_err::Error& failure) {
      reports.push_back({path, failure.what()});
    }
  }
  return reports;
}

std::vector<PluginReport> BuildModules(const std::string& category) {
  return ModuleRegistry::Instance().Build(category);
}

}  // namespace brisq_api
