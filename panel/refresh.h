#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "brisq_export.h"

namespace brisq_panel {

/// What a refresh did.
struct BRISQ_API RefreshReport {
  bool walked = false;               ///< the mail server's file had changed and was read whole
  std::size_t lines = 0;             ///< lines read, when it was
  std::vector<std::string> unknown;  ///< names in it that are no mailbox of the panel
  std::size_t homes_filled = 0;
  std::size_t figures_changed = 0;  ///< mailboxes whose used space is another one now
  std::vector<std::string> swept;   ///< addresses of active mailboxes that had no line any more
  /// "PATH, line N: REASON" of lines of mailboxes that nobody can read; these mailboxes stay.
  std::vector<std::string> spared;
  /// Why the mail server told no used space at all, in its own words; empty when it did. The stored
  /// figures are those of the last good refresh then.
  std::string quota_problem;
};

/// Brings the table of mailboxes into line with what the mail server serves, as one unit: rows
/// already written stay when it fails, but the next refresh reads everything again. Its changes
/// share transactions. A password's hash that the back-end replaced by something that is none comes
/// back. One at a time on this machine; on the calling thread.
/// @param sweep  true: any number of mailboxes may be swept; false: a sweep of more than
/// "EmailSweepLimit" percent of the active ones, and more than 10, is refused
/// @throws mgr_err::Error "limit" for a refused sweep, and for a passwd-file that is missing while
/// there are active mailboxes; "email" for such hashes, "locked" while
/// another refresh goes on, "plugin" without a mail back-end; whatever the back-end throws
BRISQ_API RefreshReport Refresh(bool sweep);

}  // namespace brisq_panel
