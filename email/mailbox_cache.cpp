#include <cstdint>
#include <cstring>

#include "brisq_db.h"
#include "dovecot_interface.h"
#include "email.h"
#include "email_dovecot.h"
#include "mgr_proc.h"
#include "passwd_backend.h"
#include "passwd_file.h"
#include "singleton.h"
#include "str.h"
#include "used_space.h"

namespace brisqpriv_email_dovecot {
namespace {

using Mailboxes = std::shared_ptr<brisq_db::EmailTable>;
using Domains = std::shared_ptr<brisq_db::EmailDomainTable>;

void PostUsedSpace(const UsedSpace& used, const Mailboxes& mailboxes, const Domains& domains) {
  for (const auto& [name, megabytes] : used) {
    if (!email::FindByEmailName(name, mailboxes, domains)) continue;
    mailboxes->used = megabytes;
    mailboxes->Post();
  }
}

std::int32_t RandomTag() {
  const std::string bytes = str::Random(sizeof(std::int32_t));
  std::int32_t tag = 0;
  std::memcpy(&tag, bytes.data(), sizeof(tag));
  return tag;
}

/// Posts every mailbox that has a line, marked by `tag`; a mailbox that Dovecot did not report has
/// used nothing.
void MarkMailboxes(DovPasswd& line, UsedSpace& used, std::int32_t tag, const Mailboxes& mailboxes,
                   const Domains& domains) {
  for (; !line.Eof(); line.Next()) {
    const std::string name = line.name.Str();
    if (!email::FindByEmailName(name, mailboxes, domains)) continue;
    if (std::string(mailboxes->home).empty()) mailboxes->home = line.home.Str();
    mailboxes->used = used[name];
    mailboxes->tag = tag;
    mailboxes->Post();
  }
}

void SweepUnmarked(brisq_db::EmailTable& mailboxes, std::int32_t tag) {
  mailboxes.DbDelete("tag != " + str::Str(tag) + " AND active = 'on'");
}

}  // namespace

void DovecotInterface::Cache() {
  UsedSpace used;
  const Mailboxes mailboxes = brisq_db::GetCache().Get<brisq_db::EmailTable>();
  const auto line = DovPasswdConfig::Get<DovPasswd>(passwd_path, true);
  line->First();
  if (!line->Eof()) CacheQuota(used);
  const Domains domains = brisq_db::GetCache().Get<brisq_db::EmailDomainTable>();
  std::string difference;
  if (!brisq_db::FileIsChanged(passwd_path, difference)) {
    PostUsedSpace(used, mailboxes, domains);
    return;
  }
  const std::int32_t tag = RandomTag();
  MarkMailboxes(*line, used, tag, mailboxes, domains);
  SweepUnmarked(*mailboxes, tag);
  if (dovecot_auth) return;
  if (Singleton<email::box::DelayedStart>::Instance().EmailDelay()) pwd_interface->CachePasswords();
}

void DovecotInterface::CacheQuota(UsedSpace& used) {
  // awk leaves name and kilobytes of each row; its status, not doveadm's, is the pipeline's.
  mgr_proc::Execute query(
      doveadm_path + " quota get -A 2>&1 " + "| awk '/STORAGE/ {print($1, $5)}'", 2);
  const std::string rows = query.Str();
  if (query.Result() != 0) {
    if (email_log.Check(mgr_log::kWarning)) {
      email_log.Write(mgr_log::kWarning, "Unable to get email quota.");
    }
    return;
  }
  EnterUsedSpace(rows, used);
}

}  // namespace brisqpriv_email_dovecot
