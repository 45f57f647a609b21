#pragma once

#include <functional>
#include <string>
#include <vector>

#include "brisq_export.h"

/// Changes that requests have made and that may be lost on a power failure, because the system
/// would not confirm that they are on the disk. A request goes on over them: its other parts are no
/// less done. Of the whole process; any thread.
namespace doubts {

/// Logs a doubt and keeps it for who answers the user.
/// @param text  one sentence: what was changed and why it may be lost
BRISQ_API void Note(const std::string& text);

/// Does a save. In a request a change that was made is no reason to take back everything else, even
/// when it may not outlive a power failure: such an error is noted instead.
/// @throws what `save` throws otherwise
BRISQ_API void NoteInRequest(const std::function<void()>& save);

/// What was noted since the last call, in order, each text once.
BRISQ_API std::vector<std::string> Take();

}  // namespace doubts
