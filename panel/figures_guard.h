#pragma once

#include <map>
#include <string>

#include "brisq_export.h"
#include "panel/refresh_watch.h"

/// Figures of used space around a refresh, and keeping them when the mail server tells none.
namespace brisq_panel {

/// What a refresh may change of a mailbox.
struct BRISQ_API MailboxState {
  bool has_home = false;
  int used = 0;
  int tag = 0;
  bool active = false;
};

/// The mailboxes by number, at one moment.
using MailboxSnapshot = std::map<int, MailboxState>;

BRISQ_API MailboxSnapshot TakeMailboxSnapshot();

/// Why there are no figures, in the mail server's words, when a refresh got none at all although
/// there are mailboxes; empty when it got some. In doubt, when all it got may be zeros, the mail
/// server is asked again.
/// @param before, after  the mailboxes around the refresh
BRISQ_API std::string QuotaProblem(const MailboxSnapshot& before, const MailboxSnapshot& after,
                                   const RefreshWatch& watch);

/// Gives the mailboxes their earlier figures back, and changes `after` accordingly.
BRISQ_API void RestoreFigures(const MailboxSnapshot& before, MailboxSnapshot& after);

}  // namespace brisq_panel
