#pragma once

#include <string>
#include <utility>
#include <vector>

#include "brisq_export.h"

/// Having the mail server serve what the panel's table holds. Any thread.
namespace brisq_panel {

/// What of the passwd-file and of the Maildirs differs from the table, or was brought into line.
struct BRISQ_API SyncReport {
  std::string path;                   ///< of the passwd-file
  std::vector<std::string> diff;      ///< its lines as DiffLines has them
  std::vector<std::string> maildirs;  ///< Maildirs of which something is missing
  /// "PATH: REASON" of what of a mailbox was left alone: its Maildir, whose way is not safe or
  /// where the system lets nobody look, or "PATH, line N: REASON" of its line with too few columns.
  std::vector<std::string> unsafe;
  std::vector<std::string>
      strangers;  ///< names in the file that the panel does not know, left alone
  std::vector<std::string> passwordless;  ///< mailboxes without a password, which nobody keeps
  /// Address and new password of those that had none; as asked for.
  std::vector<std::pair<std::string, std::string>> passwords;

  bool Differs() const { return !diff.empty() || !maildirs.empty(); }
};

/// Brings the passwd-file and the Maildirs into line with the table, as one request with one save
/// of the file: lines of active mailboxes are made or get the table's values and keep their
/// password, lines of those that are switched off leave, missing Maildirs are made. A password that
/// the panel keeps is hashed anew where the line has none. Lines of others stay. A mailbox whose
/// Maildir can't be reached gets no new line, and of one whose line has too few columns nothing is
/// touched; all others are served.
/// @param generate  gives a new password to each mailbox whose password nobody keeps
/// @throws mgr_err::Error "plugin"; "file" and "locked" from the passwd-file; whatever the
/// back-ends throw: nothing has changed
BRISQ_API SyncReport Sync(bool generate);

/// What Sync would do; nothing changes. Passwords are not hashed for it.
/// @throws as Sync
BRISQ_API SyncReport PlanSync();

}  // namespace brisq_panel
