#pragma once

#include <string>

#include "brisq_export.h"

namespace brisq_panel {

/// Action of the mail back-end that removes snippets whose files are gone.
constexpr const char* kCheckAction = "dovecot.certs.check";
/// Action that reloads the mail server; restarts it with "hard=on".
constexpr const char* kReloadAction = "dovecot.reload";

/// Has the current request, once it is committed, remove snippets whose files are gone and restart
/// the mail server: one that came up with such a snippet in its configuration would not come up at
/// all. Does nothing when the mail back-end offers no such actions. A note of the request tells of
/// a snippet of `domain` that could not be removed.
BRISQ_API void PruneAfterCommit(const std::string& domain);

}  // namespace brisq_panel
