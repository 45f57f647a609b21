#pragma once

#include <memory>
#include <string>
#include <vector>

#include "brisq_api.h"
#include "brisq_export.h"

/// The host's side of modules and actions: loading plug-ins, building their modules, finding
/// actions.
namespace brisq_api {

/// What became of one plug-in.
struct PluginReport {
  std::string file;   ///< as given, or found in a folder; empty for a module of the host itself
  std::string error;  ///< empty: all is well; else what is wrong, without the file's name
};

/// Loading of plug-ins, begun before its outcome is needed: the first one is tried meanwhile.
///
/// A folder stands for its files "*.so" in name order. Each file is first loaded by a child
/// process, so that one that throws, crashes or hangs there, or is no plug-in (it registers no
/// module constructor), is never loaded here. One that is replaced after its trial is tried anew.
/// For the main thread, before others are started.
class BRISQ_API PluginLoading {
 public:
  /// Looks for the files and starts the trial of the first.
  /// @throws mgr_err::Error "config" with the file as object when somebody else could change one of
  /// them (safe_program.h), who would be what this process is: nothing has been loaded then
  explicit PluginLoading(const std::vector<std::string>& files_or_folders);
  ~PluginLoading();
  PluginLoading(const PluginLoading&) = delete;
  PluginLoading& operator=(const PluginLoading&) = delete;

  /// Loads the plug-ins, with all their symbols resolved and none of them offered to other
  /// libraries. A plug-in that is fine stays until the process ends. To be called once.
  ///
  /// One report for each file, in order, and one for each path that does not exist; never throws
  /// for a bad plug-in.
  std::vector<PluginReport> Load();

 private:
  class Trial;
  std::vector<PluginReport> files_;
  std::unique_ptr<Trial> first_;  // null when it has been used or could not be started
};

/// Loads plug-ins at once.
/// @throws as PluginLoading
BRISQ_API std::vector<PluginReport> LoadPlugins(const std::vector<std::string>& files_or_folders);

/// Calls the constructor functions registered under `category` that have not been called yet, in
/// the order of registration, and keeps the modules. One that throws or returns nothing is reported
/// and not called again. One report for each constructor called.
BRISQ_API std::vector<PluginReport> BuildModules(const std::string& category);

/// The registered actions in name order. Any thread; the pointers are good until their actions are
/// destroyed.
BRISQ_API std::vector<const Action*> Actions();

/// The action of this name, or null. Any thread.
BRISQ_API const Action* FindAction(const std::string& name);

/// Names of the modules that exist, in name order. Any thread.
BRISQ_API std::vector<std::string> Modules();

}  // namespace brisq_api
