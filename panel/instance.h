#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "brisq_export.h"

namespace mgr_cf {
struct Settings;
}
namespace brisq_api {
struct PluginReport;
}

/// One panel with its state, as a configuration describes it.
namespace brisq_panel {

/// The panel of this process, open from construction to destruction: parameters and paths, log,
/// state directory, database, plug-ins and their modules. At most one at a time; what plug-ins have
/// registered stays when it is closed.
class BRISQ_API Instance {
 public:
  /// Opens the panel. The state directory (0700) and the database (0600) are made when they are
  /// missing. Requests whose process has died are recovered. A plug-in that can't be loaded or
  /// built does not fail it: see reports().
  /// @param meanwhile  called once when the database can be read, before plug-ins are loaded, which
  /// takes longest, for what may go on beside that; what it throws fails the opening
  /// @throws mgr_err::Error "config" for a state or database path that is not given, for a number
  /// that is none, for a plug-in that somebody else could change, or when the mail back-end's
  /// "dovecot-passwd" is no absolute path; "file" when
  /// the state directory or the database's can't be made or lets other users write; "db" and
  /// "locked" from the database; "internal" when another instance is open: nothing stays open
  explicit Instance(const mgr_cf::Settings& settings,
                    const std::function<void()>& meanwhile = nullptr);
  ~Instance();
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;

  /// What was done with requests whose process had died before this instance was opened, in plain
  /// words.
  const std::vector<std::string>& recovered() const noexcept;

  /// One report for each plug-in file, then one for each module that was built or failed to be.
  const std::vector<brisq_api::PluginReport>& reports() const noexcept;

  /// Runs what is due in a process that is about to end: commands queued for later, then reloads
  /// and restarts, unless a server takes care of those.
  /// @return what failed, in plain words; it is tried again by a later process
  std::vector<std::string> RunDue();

  /// Folder in which plug-ins are looked for when the configuration names none: "brisq" beside
  /// this library, which is right in the build tree and in an installation.
  static std::string DefaultPluginFolder();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace brisq_panel
