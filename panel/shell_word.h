#pragma once

#include <string>
#include <string_view>

#include "brisq_export.h"

namespace brisq_panel {

/// A text as one word for the shell, as it stands where nothing in it means something to the shell,
/// else in single quotes: for commands that people are to paste.
BRISQ_API std::string ShellWord(std::string_view text);

}  // namespace brisq_panel
