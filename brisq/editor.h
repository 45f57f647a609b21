#pragma once

#include <string>

#include "brisq/command.h"

namespace brisq {

/// The command by which the person wants texts edited: VISUAL, else EDITOR, else on a terminal
/// sensible-editor or vi.
/// @throws mgr_err::Error "usage" when none is set and there is no terminal
std::string EditorCommand(const Console& console);

/// Has a file edited: runs the command, split by the shell, with the file behind it, on our own
/// input, output and terminal, and waits for its end. Signals of the keyboard are the editor's
/// alone meanwhile.
/// @throws mgr_err::Error "file" when it can't be started or ends with an error
void RunEditor(const std::string& command, const std::string& file);

}  // namespace brisq
