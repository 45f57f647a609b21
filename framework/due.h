#pragma once

#include <cstddef>
#include <string>

#include "brisq_export.h"

/// Shell commands that wait to be run by this process. Any thread.
namespace due {

/// Appends a command to the queue.
BRISQ_API void QueueCommand(const std::string& command);

/// Commands that wait, the one that is running not counted.
BRISQ_API std::size_t QueuedCommands();

/// Runs what is queued, and what is queued meanwhile, one by one in order, each by "/bin/sh -c" and
/// within the limit of "ExecTimeout"; returns when the queue is empty. A command that fails is
/// logged and gone. A second thread waits until the first has returned.
BRISQ_API void RunQueuedCommands();

}  // namespace due
