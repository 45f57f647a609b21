#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "brisq_db.h"
#include "brisq_export.h"
#include "mgr_err.h"
#include "reloader.h"
#include "singleton.h"

/// The panel's email module: what a mail back-end registers with it and asks of it.
namespace email {

/// A back-end that makes a mail server serve the panel's mailboxes. The email module calls it on
/// the thread of a request; failures travel as exceptions, which make the request fail.
class BRISQ_API Pop3Interface {
 public:
  /// Brings the panel's mailbox table into line with what the mail server serves.
  virtual void Cache() = 0;
  /// A mailbox has been made: its row is posted, not yet committed.
  virtual void Create(std::shared_ptr<brisq_db::EmailTable>& email) = 0;
  /// A mailbox is about to be removed.
  virtual void Delete(std::shared_ptr<brisq_db::EmailTable>& email) = 0;
  /// A mailbox's settings have changed.
  virtual void Update(std::shared_ptr<brisq_db::EmailTable>& email) = 0;
  /// A domain is to present this certificate.
  /// @param cert  path of the certificate file
  /// @param key   path of the private key file
  virtual void SetSSLCertForDomain(const std::string& domain, const std::string& cert,
                                   const std::string& key) = 0;
  /// The domain's row is about to be removed: links to its certificate go with the commit.
  virtual void OnDeleteDomain(std::shared_ptr<brisq_db::EmailDomainTable>& domain) = 0;
  /// The domain's row has been posted, not yet committed: links go as above when it has no
  /// certificate any more.
  virtual void OnUpdateDomain(std::shared_ptr<brisq_db::EmailDomainTable>& domain) = 0;
  /// The mail server should take up changed configuration.
  virtual void ReloadConfig() = 0;
  virtual ~Pop3Interface();
};

/// A back-end that keeps the mailboxes' passwords. Names are full addresses, passwords clear text.
class BRISQ_API PasswdInterface {
 public:
  virtual ~PasswdInterface();
  /// Brings the kept passwords into line with those that the panel holds.
  virtual void CachePasswords() = 0;
  /// Sets the first password of a new mailbox.
  virtual void Create(const std::string& name, const std::string& password) = 0;
  /// Sets a new password. An empty one changes nothing.
  virtual void Update(const std::string& name, const std::string& password) = 0;
  /// Forgets the mailbox; one that is not known is no error.
  virtual void Delete(const std::string& name) = 0;
};

/// Makes the email module use this mailbox back-end from now on; the last call counts. The object
/// is not owned and must live until the process ends.
BRISQ_API void RegisterPop3(Pop3Interface* interface);

/// Makes the email module leave passwords to this back-end, as for RegisterPop3. Without one the
/// panel keeps passwords itself, sealed.
BRISQ_API void RegisterPwdInterface(PasswdInterface* interface);

/// Full name of a mailbox: local part, "@", domain.
/// @throws mgr_err::Error "missed" when its domain does not exist
BRISQ_API std::string GetEmailName(const std::shared_ptr<brisq_db::EmailTable>& email);

/// Record of the user who owns a mailbox.
/// @throws mgr_err::Error "missed" when there is none
BRISQ_API std::shared_ptr<brisq_db::User> GetEmailOwner(
    const std::shared_ptr<brisq_db::EmailTable>& email);

/// Looks a full address up, after bringing it into the form in which names are stored (lower case,
/// A-labels). True when it is known: both tables stand on the mailbox and its domain then. False
/// otherwise: where the tables stand is not defined.
BRISQ_API bool FindByEmailName(const std::string& name,
                               const std::shared_ptr<brisq_db::EmailTable>& email,
                               const std::shared_ptr<brisq_db::EmailDomainTable>& domain);

/// The mail server's side failed: of type "email", reported to the user, hashes in `value` masked.
class BRISQ_API Fail : public mgr_err::Error {
 public:
  Fail(const std::string& object, const std::string& value);
  Fail(const Fail&);
  ~Fail() override;
};

/// The reload action of a mail back-end; all it does is the reloader's.
class BRISQ_API EmailReload : public reloader::Reloader {
 public:
  using reloader::Reloader::Reloader;
  ~EmailReload() override;
};

namespace domain {

/// Links `file` into `directory` as DOMAIN + `suffix` and returns that path. A job of the current
/// request: the link is put in place at commit, replacing an older one in one step, and taken back
/// when the request fails. Missing parents of the link and the directory itself (0755, root) are
/// made then.
/// @throws mgr_err::Error "value" for a domain that is empty, begins with "." or holds "/": nothing
/// is queued
BRISQ_API std::string CreateSymbLink(const std::string& domain, const std::string& directory,
                                     const std::string& file, const std::string& suffix);

/// Queues the removal of the domain's certificate and key links of a back-end when the event is
/// "delete", or when it is "update" and the domain has no certificate any more; does nothing
/// otherwise. A job of the current request.
/// @param backend  links are those in the directory under the path key BACKEND + "-ssl-certs"
BRISQ_API void CleenUpCerts(const std::shared_ptr<brisq_db::EmailDomainTable>& domain,
                            const std::string& event, const std::string& backend);

}  // namespace domain

namespace box {

/// Gate for mail work that must not run too often.
class BRISQ_API DelayedStart {
 public:
  /// True when the last run of password work, by any process of this panel, is at least
  /// "EmailPasswordDelay" seconds ago (0 when that is unset), and notes the time of this one then.
  /// A last run that lies in the future, as it may after the clock was set back, counts for none.
  /// Any thread.
  /// @throws mgr_err::Error "db" and "locked" from the panel's database
  bool EmailDelay();

 private:
  std::mutex mutex_;
};

}  // namespace box
}  // namespace email

extern template class BRISQ_API Singleton<email::box::DelayedStart>;
