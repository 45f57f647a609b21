#include "dovecot_interface.h"

#include "apistat.h"
#include "brisq_api.h"
#include "email_dovecot.h"
#include "mgr_cf.h"
#include "mgr_file.h"
#include "mgr_job.h"
#include "passwd_backend.h"
#include "passwd_file.h"
#include "safe_file.h"

namespace brisqpriv_email_dovecot {
namespace {

/// Extra field behind the mail location. The leading blank is what parts the two.
std::string QuotaRule(const brisq_db::EmailTable& mailbox) {
  const std::string megabytes = mailbox.quota.AsString();
  const bool unlimited = megabytes.empty() || megabytes == "0";
  return " userdb_quota_rule=*:bytes=" + (unlimited ? "0" : megabytes) + "M";
}

void SetAccount(DovPasswd& line, const brisq_db::User& owner, const brisq_db::EmailTable& mailbox) {
  line.uid.Set(owner.uid.AsString());
  line.gid.Set(owner.gid.AsString());
  line.home.Set(mailbox.home);
  line.maildir.Set("maildir:~/.maildir" + QuotaRule(mailbox));
}

/// An existing Maildir is left exactly as it is.
void CreateMaildir(const std::shared_ptr<brisq_db::User>& owner, const std::string& path) {
  if (mgr_file::Exists(path)) return;
  const int uid = owner->uid;
  const int gid = owner->gid;
  const mgr_file::Attrs attrs(0700, static_cast<uid_t>(uid), static_cast<gid_t>(gid));
  const mgr_file::safe::Folder maildir = safe_file::JobCreateOddDirAbs(owner, path, attrs);
  for (const char* name : {"new", "cur", "tmp"}) {
    new mgr_job::safe::CreateDir(maildir, name, attrs);
  }
}

}  // namespace

DovecotInterface::DovecotInterface()
    : passwd_path(mgr_cf::GetPath("dovecot-passwd")),
      doveadm_path(mgr_cf::GetPath("dovecot-doveadm")),
      dovecot_auth(mgr_cf::GetParam("EmailAuth") == "dovecot"),
      pwd_interface(new DovPwdInterface) {
  apistat::ModuleInterface("mail", "dovecot");
}

void DovecotInterface::Create(std::shared_ptr<brisq_db::EmailTable>& mailbox) {
  const auto line = DovPasswdConfig::Get<DovPasswd>(passwd_path, true);
  line->New();
  const std::string name = email::GetEmailName(mailbox);
  line->name.Set(name);
  const std::shared_ptr<brisq_db::User> owner = email::GetEmailOwner(mailbox);
  SetAccount(*line, *owner, *mailbox);
  line->Post("");
  if (!dovecot_auth) pwd_interface->Update(name, mailbox->password);
  CreateMaildir(owner, std::string(mailbox->home) + "/.maildir");
}

void DovecotInterface::Update(std::shared_ptr<brisq_db::EmailTable>& mailbox) {
  const auto line = DovPasswdConfig::Get<DovPasswd>(passwd_path, true);
  const std::string name = email::GetEmailName(mailbox);
  line->Assert(name);
  if (email_log.Check(mgr_log::kDebug)) {
    email_log.Write(mgr_log::kDebug, "%s:%d post quota %s", DebugSource().c_str(), __LINE__,
                    QuotaRule(*mailbox).c_str());
  }
  const std::shared_ptr<brisq_db::User> owner = email::GetEmailOwner(mailbox);
  SetAccount(*line, *owner, *mailbox);
  line->Post("");
  if (mailbox->pwupdate && !dovecot_auth) pwd_interface->Update(name, mailbox->password);
}

void DovecotInterface::Delete(std::shared_ptr<brisq_db::EmailTable>& mailbox) {
  if (dovecot_auth) return;
  pwd_interface->Delete(email::GetEmailName(mailbox));
}

void DovecotInterface::ReloadConfig() {
  brisq_api::ExecuteLater(mgr_cf::GetPath("dovecot-doveadm") + " reload");
}

}  // namespace brisqpriv_email_dovecot
