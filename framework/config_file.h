#pragma once

#include <map>
#include <string>
#include <vector>

#include "brisq_export.h"

/// The administrator's configuration file, and values set by the host.
namespace mgr_cf {

/// What a configuration file says; a default for what it does not say. Paths of the tables [panel]
/// and [log] are absolute: the file gives them relative to its own folder.
struct Settings {
  /// Absolute path of the file.
  std::string file;
  /// SQLite file; default "state/panel.db".
  std::string database;
  /// Folder of keys and locks; default "state".
  std::string state;
  /// Plug-in files, or folders of them; empty when the file has no such key: the caller knows where
  /// they are installed.
  std::vector<std::string> plugins;
  /// Folder of the logs; default "log".
  std::string log_directory;
  /// Level of the modules that `log_levels` does not name, 0 to 9.
  int log_level = 4;
  std::map<std::string, int> log_levels;
  /// Size at which a log file is put aside, in MiB, 1 to 4096.
  int log_rotate_mb = 16;
  /// Number of full log files kept, 0 to 1000.
  int log_keep = 5;
  /// Parameters and path keys, as they stand.
  std::map<std::string, std::string> params;
  std::map<std::string, std::string> paths;
  /// "FILE:LINE" of each parameter, path key and level by module that the file sets.
  std::map<std::string, std::string> param_places;
  std::map<std::string, std::string> path_places;
  std::map<std::string, std::string> level_places;
};

/// Reads a TOML file with the tables [panel] (database, state, plugins), [log] (directory, level,
/// rotate_mb, keep, and a level by module name), [param] and [path] (text under any key). Each
/// table and each key may be missing. Nothing is set by this: see Apply.
///
/// @throws mgr_err::Error "config" with object "FILE:LINE" and the broken rule as value: no TOML,
/// a table or a key of [panel] that is not listed here, a value of a wrong type or out of its
/// range. Object "FILE" when it can't be read, or somebody else could change it (safe_program.h).
BRISQ_API Settings ReadSettings(const std::string& file);

/// Sets the parameters and path keys of `settings` in place of everything set earlier; declared
/// defaults stay. One step for other threads: none sees a half of it.
BRISQ_API void Apply(const Settings& settings);

/// Sets one value, which wins over the file's and over the default. Any thread.
BRISQ_API void SetParam(const std::string& name, const std::string& value);
BRISQ_API void SetPath(const std::string& name, const std::string& value);

/// Names that have been declared, by plug-ins or the host, in order. Any thread.
BRISQ_API std::vector<std::string> DeclaredParams();
BRISQ_API std::vector<std::string> DeclaredPaths();

/// Forgets everything set and everything declared.
BRISQ_API void Reset();

}  // namespace mgr_cf
