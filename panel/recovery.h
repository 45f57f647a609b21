#pragma once

#include <string>
#include <vector>

#include "brisq_export.h"

/// Requests of this panel whose process has died or could not finish them.
namespace brisq_panel {

/// True when there is one that this process has not tried to recover within the last minute. What
/// it has tried in vain is tried again by the next process, or by itself when it lives on.
/// @throws mgr_err::Error "file" when the journal can't be read
BRISQ_API bool NeedsRecovery();

/// Brings each to its end or undoes it, and has the mail server look again at what was taken back.
/// Costs a look into a folder when there is none. The calling thread has no request.
/// @return what was done, and what could not be done yet, in plain words; it is in the log too
BRISQ_API std::vector<std::string> RecoverRequests() noexcept;

/// For a server, whenever it looks around: the same when NeedsRecovery, and else nothing but a look
/// into a folder. What keeps recovery from beginning is logged once, until it changes or is gone.
/// The calling thread has no request.
BRISQ_API void RecoverInTurn() noexcept;

}  // namespace brisq_panel
