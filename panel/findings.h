#pragma once

#include <string>
#include <vector>

#include "brisq_export.h"

/// What checks of an instance report. Nothing here touches what was checked.
namespace brisq_panel {

enum class Severity {
  kWarning,  ///< works, but not as somebody may think, or not safely
  kError     ///< somebody's mail, login or certificate does not work, or is open to others
};

/// One thing that is not as it should be.
struct BRISQ_API Finding {
  std::string code;  ///< kind, for scripts: capitals, digits and "-"; it never changes its meaning
  Severity severity = Severity::kError;
  std::string object;  ///< what it is about: a path, with ", line N" for a line, or an address
  std::string text;    ///< what is wrong, without a full stop; never a password or a hash
  std::string fix;     ///< what ends it: a command or what to do; empty when there is nothing to do
};

/// "warning" or "error".
BRISQ_API std::string SeverityWord(Severity severity);

/// "CODE severity object: text (fix: FIX)" without an end of line and, when there is no fix,
/// without the brackets. Control characters and what is no UTF-8 are escaped: one finding is one
/// line.
BRISQ_API std::string FindingLine(const Finding& finding);

}  // namespace brisq_panel
