#pragma once

#include "cached_config.h"
#include "conf_dataset.h"
#include "dd.h"
#include "test.h"

namespace brisqpriv_email_dovecot {

/// Dovecot's passwd-file: one mailbox per line, nine columns parted by colons, of which the last
/// takes the rest of the line. Made by the configuration cache and reached through a cursor only.
///
/// Columns 5, 7 and 8 are there for the format and stay empty.
class DovPasswd : public UnixDataSet {
 public:
  DovPasswd();

  // The order of declaration is the order of the columns.
  dd::Field name;    ///< key: full address
  dd::Field passwd;  ///< hash as doveadm printed it; empty before a password has been set
  dd::Field uid;     ///< digits; white space around them is dropped when set
  dd::Field gid;     ///< as uid
  dd::Field info;
  dd::Field home;
  dd::Field shell;
  dd::Field flags;
  dd::Field maildir;  ///< mail location, a blank, and extra fields of the user database
};

/// Configuration of the passwd-file: `DovPasswdConfig::Get<DovPasswd>(path, true)` opens it. Every
/// save ends in one request to reload Dovecot.
class DovPasswdConfig : public MgrCachedConfig<DovPasswdConfig> {
 public:
  /// Registers syntax, hook and dataset with the configuration cache. For the base class only,
  /// which makes the one object of the process on first use.
  DovPasswdConfig();

 protected:
  /// Calls the action "dovecot.reload" when the file was written. What the action throws reaches
  /// the post that saved; the file stays saved.
  void AfterSave(ConfRef& ref, ConfCache::SaveReason& reason) override;
};

}  // namespace brisqpriv_email_dovecot
