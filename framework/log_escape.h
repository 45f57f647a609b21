#pragma once

#include <string>
#include <string_view>

#include "brisq_export.h"

namespace mgr_log {

/// What becomes of a backslash in an escaped text.
enum class Backslash {
  kDoubled,  ///< the original can be told from the result
  kKept      ///< a path or name stands as it is typed
};

/// `text` as it may stand in one line of a log and be shown by a terminal: what is printable, UTF-8
/// included, stays; control characters become \n, \r, \t or \xHH for each byte, and so do bytes
/// that are no UTF-8, line and paragraph separators and marks that turn the direction of writing.
BRISQ_API std::string Escaped(std::string_view text, Backslash backslash = Backslash::kDoubled);

}  // namespace mgr_log
