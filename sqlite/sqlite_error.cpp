#include "sqlite/sqlite_error.h"

#include <soci/sqlite3/soci-sqlite3.h>

#include <cerrno>
#include <system_error>

#include "framework/sql_session.h"
#include "framework/sys.h"
#include "str.h"

namespace mgr_db {

namespace {

int CodeOf(const soci::soci_error& error) {
  const auto* sqlite = dynamic_cast<const soci::sqlite3_soci_error*>(&error);
  return sqlite == nullptr ? SQLITE_ERROR : sqlite->result() & 0xff;
}

// The library's words end in the statement with its values, which may be secrets, and begin with
// the name of its function; what is left is SQLite's own text, which names columns only.
std::string SystemsWords(const soci::soci_error& error) {
  const std::string words = error.get_error_message();
  const std::string marker = "_backend::";
  const std::size_t function = words.find(marker);
  const std::size_t text = function == std::string::npos ? function : words.find(": ", function);
  return text == std::string::npos ? words : words.substr(text + 2);
}

mgr_err::Error TakenError(const std::string& words) {
  return mgr_err::Error("exists", str::RGetWord(words, ": "), "the value is taken");
}

std::string InWords(int system_error) {
  return std::generic_category().message(system_error) + sys::Remedy(system_error);
}

// With other codes the system's refusal was none to SQLite.
int OfThisError(int code, int last_refusal) {
  return code == SQLITE_IOERR || code == SQLITE_CANTOPEN ? last_refusal : 0;
}

bool IsFull(int code, int system_error) {
  return code == SQLITE_FULL || system_error == ENOSPC || system_error == EDQUOT;
}

}  // namespace

mgr_err::Error Translated(const std::string& file, const soci::soci_error& error,
                          int last_refusal) {
  const std::string words = SystemsWords(error);
  const int code = CodeOf(error);
  const int system_error = OfThisError(code, last_refusal);
  if (IsFull(code, system_error)) {
    return mgr_err::Error("db", file, InWords(system_error == 0 ? ENOSPC : system_error));
  }
  if (code == SQLITE_BUSY || code == SQLITE_LOCKED) {
    return mgr_err::Error("locked", file, "another process is changing it");
  }
  if (code == SQLITE_READONLY || code == SQLITE_CANTOPEN) {
    return mgr_err::Error("db", file, words + "; " + kMustBeWritable);
  }
  if (code == SQLITE_CONSTRAINT && str::StartsWith(words, "UNIQUE constraint failed")) {
    return TakenError(words);
  }
  const std::string system = system_error == 0 ? "" : ": " + InWords(system_error);
  return mgr_err::Error("db", file, words + system);
}

bool IsStuck(const soci::soci_error& error) { return CodeOf(error) == SQLITE_PROTOCOL; }

}  // namespace mgr_db
