#pragma once

#include <string>

#include "brisq_export.h"

namespace brisq_panel {

/// Action of the mail back-end that removes snippets whose files are gone.
constexpr const char* kCheckAction = "dovecot.certs.check";
/// Action that reloads the mail server; restarts it with "hard=on".
constexpr const char* kReloadAction = "dovecot.reload";
/// The panel's own action that has kCheckAction remove the snippet of its parameter "domain", and
/// looks whether it is gone. It throws "file" when the snippet could not be removed, "exists" for
/// one that no check removes, since the files that it names are there, and "value" for no domain.
constexpr const char* kPruneAction = "panel.tls.prune";

/// Has the current request, once it is committed, remove snippets whose files are gone and restart
/// the mail server: one that came up with such a snippet in its configuration would not come up at
/// all. Does nothing when the mail back-end offers no such actions. A note of the request tells of
/// a snippet of `domain` that is still there; its removal stays owed when it may work later.
BRISQ_API void PruneAfterCommit(const std::string& domain);

}  // namespace brisq_panel
