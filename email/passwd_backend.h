#pragma once

#include <string>

#include "dovecot_interface.h"
#include "email.h"

namespace brisqpriv_email_dovecot {

/// The password back-end: hashes in the passwd-file, made by doveadm. It changes and removes lines
/// and never adds one.
///
/// Names are full addresses, passwords clear text. One object, made by the mailbox back-end and
/// never freed. It holds constant values only, so that any thread may call it; each operation opens
/// the passwd-file anew and may wait for child processes.
class DovecotInterface::DovPwdInterface : public email::PasswdInterface {
 public:
  /// Reads the paths and chooses the scheme, which asks doveadm; a failing doveadm is logged and
  /// leaves the scheme "CLEARTEXT".
  DovPwdInterface();

  /// Puts the hash of the panel's password into every line whose mailbox the panel knows with a
  /// password. One child process for each such line.
  /// @throws as Update: lines before the failing one stay posted
  void CachePasswords() override;

  /// Sets the first password of a mailbox that has its line already; the same as Update.
  void Create(const std::string& name, const std::string& password) override;

  /// Sets the password of a line; an empty password changes nothing, line or no line.
  /// @throws mgr_err::Error "missed" without a line, before any hashing; email::Fail as CryptPw.
  /// The line is unchanged then.
  void Update(const std::string& name, const std::string& password) override;

  /// Removes the mailbox's whole line; without one does nothing.
  void Delete(const std::string& name) override;

  /// Hash of a password, as column 2 holds it. The password goes through the tool's standard input,
  /// never its command line.
  /// @throws email::Fail "doveadm" with the tool's output when it does not succeed
  std::string CryptPw(const std::string& name, std::string password) const;

 private:
  const std::string passwd_path;
  const std::string pw_command;
  const std::string pw_scheme;
};

}  // namespace brisqpriv_email_dovecot
