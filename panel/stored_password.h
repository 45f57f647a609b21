#pragma once

#include <string>

#include "brisq_export.h"
#include "mgr_err.h"

namespace brisq_panel {

/// Refuses what a back-end has stored for a password when it can't be a hash of it: the mail
/// server's tool may end well and print nothing, an error or the hash of something else. Checked is
/// the form, that the clear text is kept only where "DovecotPwScheme" says so, and, for the schemes
/// of crypt(3), that the hash is one of this password. Nothing is changed, and nothing looked at
/// without a path "dovecot-passwd". In a scope of LineSaves it is looked at by Save, whose error
/// names the address too.
/// @param address   full name of the mailbox, whose line is there
/// @param password  in the clear, not empty
/// @throws mgr_err::Error "email" with object "doveadm", which never shows password or hash; "file"
/// and "locked" when the file can't be read
BRISQ_API void CheckStoredPassword(const std::string& address, const std::string& password);

/// What is wrong with the answer of the mail server's tool, for an error that names the column of
/// the line into which it does not fit; empty for any other error.
BRISQ_API std::string UnfitAnswer(const mgr_err::Error& error);

/// Why `hash` can't be one of any password, as HashProblem without one to compare it with; empty
/// when it can.
BRISQ_API std::string FormProblem(const std::string& hash, const std::string& scheme);

/// Why `hash` is no hash of this password as these settings want it; empty when it is one.
/// @param scheme  the wished password scheme; empty when none is set
BRISQ_API std::string HashProblem(const std::string& hash, const std::string& password,
                                  const std::string& scheme);

}  // namespace brisq_panel
