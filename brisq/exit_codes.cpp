#include "brisq/exit_codes.h"

#include <fmt/format.h>

namespace brisq {

const std::vector<ErrorKind>& ErrorKinds() {
  static const std::vector<ErrorKind> kinds = {
      {"usage", "usage", 2, "the command line can't be read; nothing was done"},
      {"missed", "not-found", 4, "nothing has this name"},
      {"findings", "findings", kExitFindings, "a check has found something; the data says what"},
      {"exists", "exists", 6, "the name is taken"},
      {"locked", "locked", 7, "another program holds what is needed"},
      {"limit", "limit", 8, "a limit that protects the data stopped the command"},
      {"email", "dovecot", kExitDovecot, "the Dovecot side is unavailable or failed"},
      {"value", "invalid-input", 10, "a value breaks a rule; nothing was changed"},
      {"doubt", "in-doubt", kExitDoubt,
       "all was done, but what was changed may be lost on a power failure"},
      {"config", "config", 10, "the configuration file breaks a rule"},
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

std::string Printable(const std::string& text) {
  std::string out;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F)
      out += fmt::format("\\x{:02x}", byte);
    else
      out += c;
  }
  return out;
}

namespace {

// A tool's message often ends in a line feed, which is no part of what it says.
std::string WithoutEnd(const std::string& text) {
  const std::size_t last = text.find_last_not_of(" \t\r\n");
  return last == std::string::npos ? std::string() : text.substr(0, last + 1);
}

}  // namespace

std::string ErrorLine(const mgr_err::Error& error) {
  std::string line = fmt::format("brisq: {}", KindOf(error).label);
  for (const std::string& part : {error.object(), error.value()})
    if (!part.empty()) line += ": " + Printable(WithoutEnd(part));
  return line;
}

}  // namespace brisq
