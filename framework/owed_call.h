#pragma once

#include <string>

#include "brisq_export.h"
#include "mgr_err.h"

/// Calls of actions that a request owes once it is committed: made by its own process, or by a
/// recovery when that one died or failed.
namespace owed_call {

/// Calls the action with all rights. What it has asked the reloader for outlives this process when
/// it returns. The calling thread has no request.
/// @throws whatever the action throws; mgr_err::Error "missed" when nobody offers it, "later" when
/// a reload could not be stored
BRISQ_API void Make(const std::string& action, const std::string& params);

/// False for an error of the call's own words, with which it would fail each time: that one is not
/// owed any more. Every other stays owed, as long as it may take.
BRISQ_API bool MayWorkLater(const mgr_err::Error& error);

}  // namespace owed_call
