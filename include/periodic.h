#pragma once

#include <string>

#include "brisq_export.h"

/// Actions that run again and again while a server runs.
namespace periodic {

/// Has `action` run with the parameter string `params`, every N minutes, N being the current value
/// of the parameter `period_param`. The period is read anew before each wait; one that is no
/// positive number stops the action until it is one again. An action that throws is logged and runs
/// again at its next turn. The same action registered again with the same parameters replaces the
/// earlier registration.
///
/// The action need not exist yet. Nothing runs in a process that never starts the scheduler. Any
/// thread.
BRISQ_API void RegisterAction(const std::string& action, const std::string& params,
                              const std::string& period_param);

}  // namespace periodic
