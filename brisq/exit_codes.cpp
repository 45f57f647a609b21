#include "brisq/exit_codes.h"

#include <fmt/format.h>

#include <sstream>

#include "framework/log_escape.h"
#include "str.h"

namespace brisq {

const std::vector<ErrorKind>& ErrorKinds() {
  static const std::vector<ErrorKind> kinds = {
      {"usage", "usage", 2, "the command line can't be read; nothing was done"},
      {"missed", "not-found", 4, "nothing has this name"},
      {"findings", "findings", kExitFindings,
       "a check has found something, or sync had to leave something; the data says what"},
      {"exists", "exists", 6, "the name is taken"},
      {"locked", "locked", 7, "another program holds what is needed"},
      {"limit", "limit", 8, "a limit that protects the data stopped the command"},
      {"email", "dovecot", kExitDovecot, "the Dovecot side is unavailable or failed"},
      {"value", "invalid-input", 10, "a value breaks a rule; nothing was changed"},
      {"config", "config", 10, "the configuration file breaks a rule"},
      {"doubt", "in-doubt", kExitDoubt,
       "all was done, but what was changed may be lost on a power failure"},
      {"owed", "still-owed", kExitOwed,
       "the change is stored, but what was to follow it is still to be done; the line says what"},
      {"later", "try-later", 75, "not now; the same command may work later"},
      {"", "failed", 1, "anything else; the line says what"},
  };
  return kinds;
}

const ErrorKind& KindOf(const mgr_err::Error& error) {
  for (const ErrorKind& kind : ErrorKinds())
    if (error.type() == kind.type) return kind;
  return ErrorKinds().back();
}

// A backslash stays one: what comes here may hold escapes already.
std::string Printable(const std::string& text) {
  return mgr_log::Escaped(text, mgr_log::Backslash::kKept);
}

namespace {

// A tool may say more than a line, which may be empty or end in blanks.
std::string InOneLine(const std::string& text) {
  std::string line;
  std::istringstream lines(text);
  for (std::string part; std::getline(lines, part);) {
    part = str::Trim(part);
    if (!part.empty()) line += (line.empty() ? "" : "; ") + part;
  }
  return line;
}

}  // namespace

std::string ErrorLine(const mgr_err::Error& error) {
  std::string line = fmt::format("brisq: {}", KindOf(error).label);
  for (const std::string& part : {error.object(), error.value()})
    if (!part.empty()) line += ": " + Printable(InOneLine(part));
  return line;
}

}  // namespace brisq
