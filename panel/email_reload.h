#pragma once

#include <string>

#include "brisq_export.h"

/// Reloads of the mail server: where their requests are kept and what is tested before a run.
namespace brisq_panel {

/// Keeps the requests of this process's reload actions in the open database, where all processes of
/// the panel see them, and declares the command under the path key "dovecot-configtest" ("doveconf
/// -nx" by default), which must succeed before a run of the group "email.reload". Lasts until the
/// object is destroyed; requests then stay in this process. Destroy it before the database is
/// closed. One at a time.
class BRISQ_API ReloadRequests {
 public:
  /// @param state_folder  for the locks between processes
  /// @throws mgr_err::Error "db", "locked"
  explicit ReloadRequests(const std::string& state_folder);
  ~ReloadRequests();
  ReloadRequests(const ReloadRequests&) = delete;
  ReloadRequests& operator=(const ReloadRequests&) = delete;
};

}  // namespace brisq_panel
