#pragma once

#include <map>
#include <memory>
#include <string>

#include "email.h"

namespace brisqpriv_email_dovecot {

/// The mailbox back-end: one line of Dovecot's passwd-file for each mailbox, its Maildir, its used
/// space, and the certificate snippets of the mail domains.
///
/// One object, made at start-up and never freed. It holds constant values only, so that any thread
/// may call it. Nothing is caught here: what the host throws reaches the caller, and what was
/// stored before stays stored.
class DovecotInterface : public email::Pop3Interface {
 public:
  class DovPwdInterface;

  /// Reads the paths and the authentication mode, which stay as they are then, makes the password
  /// back-end, and records itself as server of "mail".
  DovecotInterface();

  /// Refreshes the panel's mailbox table: used space always; homes, marks and the removal of active
  /// mailboxes without a line only when the passwd-file has changed.
  void Cache() override;

  /// Adds the mailbox's line, then its password (unless the panel's password store is ours), then
  /// queues the making of its Maildir, unless there is one.
  /// @throws mgr_err::Error "exists" when the name has a line: nothing is changed. email::Fail when
  /// hashing fails: the line stays without a password and no directory is queued.
  void Create(std::shared_ptr<brisq_db::EmailTable>& mailbox) override;

  /// Removes the mailbox's line; directories stay. Does nothing when passwords are kept by the
  /// registered password back-end, which then removes the line.
  void Delete(std::shared_ptr<brisq_db::EmailTable>& mailbox) override;

  /// Rewrites uid, gid, home and mail location of the mailbox's line, and its password when the
  /// record asks for it and passwords are pushed from here. Directories are not touched.
  /// @throws mgr_err::Error "missed" without a line: nothing is changed. email::Fail when hashing
  /// fails: the other columns are stored by then.
  void Update(std::shared_ptr<brisq_db::EmailTable>& mailbox) override;

  /// Queues the domain's snippet, and a restart for after the commit; links and a missing snippet
  /// directory are made before.
  void SetSSLCertForDomain(const std::string& domain, const std::string& cert,
                           const std::string& key) override;
  /// Hands the clean-up of the domain's links to the host. The snippet is left to the certificate
  /// check.
  void OnDeleteDomain(std::shared_ptr<brisq_db::EmailDomainTable>& domain) override;
  void OnUpdateDomain(std::shared_ptr<brisq_db::EmailDomainTable>& domain) override;

  /// Queues a reload by the doveadm path as configured now, past the reload action and its delay.
  void ReloadConfig() override;

  /// Enters the used space that Dovecot reports, in whole megabytes, under the users' names; names
  /// that it does not report keep their values. Blocks until doveadm has ended. A failed query is
  /// logged and changes nothing.
  void CacheQuota(std::map<std::string, int>& used);

  /// The password back-end; lives as long as the process.
  DovPwdInterface* PasswordBackEnd() const noexcept { return pwd_interface; }

 private:
  const std::string passwd_path;
  const std::string doveadm_path;
  const bool dovecot_auth;               ///< the host keeps passwords through pwd_interface itself
  DovPwdInterface* const pwd_interface;  ///< not owned
};

}  // namespace brisqpriv_email_dovecot
