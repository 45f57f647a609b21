#pragma once

#include <string>
#include <vector>

#include "mgr_err.h"

namespace brisq {

/// Ends a check that has found something, and a sync that has left something, after its data.
inline constexpr int kExitFindings = 5;
/// Ends a command that went on without the Dovecot side.
inline constexpr int kExitDovecot = 9;

/// Ends a command whose changes were made but may be lost on a power failure.
inline constexpr int kExitDoubt = 11;

/// Ends a command whose changes were made but did not have all that was to follow them.
inline constexpr int kExitOwed = 12;

/// What a type of error means at the edge of the program.
struct ErrorKind {
  const char* type;   ///< mgr_err::Error::type(); empty for every type that has no row of its own
  const char* label;  ///< word in the line on standard error
  int exit_code;
  const char* meaning;  ///< for the manual
};

/// The one table of kinds; the last row stands for all other types.
const std::vector<ErrorKind>& ErrorKinds();

const ErrorKind& KindOf(const mgr_err::Error& error);

/// "brisq: LABEL: OBJECT: VALUE" as one printable line without its end; lines of a part are trimmed
/// and joined by "; ", empty ones left out.
std::string ErrorLine(const mgr_err::Error& error);

/// Text with control characters, marks that turn the direction of writing and bytes that are no
/// UTF-8 as \n, \r, \t or \xNN for each byte, so that a name or a foreign message can't steer a
/// terminal.
std::string Printable(const std::string& text);

}  // namespace brisq
