#include "panel/mailboxes.h"

#include "framework/conf_defer.h"
#include "framework/database.h"
#include "mgr_cf.h"
#include "panel/address_list.h"
#include "panel/email_module.h"
#include "panel/hash_ahead.h"
#include "panel/homes.h"
#include "panel/job_log.h"
#include "panel/mail_line.h"
#include "panel/mailbox_steps.h"
#include "panel/maildir.h"
#include "panel/names.h"
#include "panel/records.h"
#include "panel/run_request.h"
#include "str.h"

namespace brisq_panel {

namespace {

using Row = mgr_db::Connection::Row;

constexpr std::size_t kColumns = 6;

std::vector<Row> Rows(const std::string& condition, const Row& values) {
  return mgr_db::ThreadConnection()->Query(
      "SELECT mailboxes.name || '@' || domains.name, owners.name, mailboxes.home,"
      " mailboxes.quota, mailboxes.used, mailboxes.active "
      "FROM mailboxes JOIN domains ON domains.id = mailboxes.domain"
      " JOIN owners ON owners.id = mailboxes.owner " +
          condition + " ORDER BY domains.name, mailboxes.name",
      values, kColumns);
}

MailboxInfo Info(const Row& row) {
  MailboxInfo info;
  info.address = row[0];
  info.owner = row[1];
  info.home = row[2];
  info.quota_mb = str::Int(row[3]);
  info.used_mb = str::Int(row[4]);
  info.active = row[5] == "on";
  return info;
}

// What is to be made, checked.
struct Plan {
  Address address;
  std::shared_ptr<brisq_db::EmailDomainTable> domain;
  std::shared_ptr<brisq_db::User> owner;
  std::string home;
  std::string quota;
};

std::string Home(const std::optional<std::string>& wish, const Address& address,
                 const std::string& owner_home) {
  std::string home = CheckHome(wish ? *wish : DefaultHome(owner_home, address));
  CheckHomeBelow(home, owner_home);
  return home;
}

// What needs no look into the tables.
Plan CheckValues(const NewMailbox& mailbox) {
  Plan plan;
  plan.address = ParseAddress(mailbox.address);
  plan.quota = QuotaText(mailbox.quota ? ParseQuota(*mailbox.quota) : 0);
  CheckPassword(mailbox.password, mgr_cf::GetParam("DovecotPwScheme"));
  if (mailbox.home) {
    CheckHome(*mailbox.home);
  }
  return plan;
}

// The rest, with the database's write lock: a domain may have changed until then.
void FindPlace(Plan& plan, const std::optional<std::string>& home) {
  plan.domain = FindDomain(plan.address.domain);
  RequireSwitchedOn(*plan.domain);
  plan.owner = Table<brisq_db::User>();
  plan.owner->Assert(plan.domain->owner);
  plan.home = Home(home, plan.address, plan.owner->home);
}

Mailbox InsertRow(const Plan& plan, const std::string& password) {
  auto email = Table<brisq_db::EmailTable>();
  if (email->DbFind({{"domain", plan.domain->id.AsString()}, {"name", plan.address.local}})) {
    throw mgr_err::Error("exists", "mailbox", plan.address.Full());
  }
  CheckHomeIsFree(plan.home, 0);
  email->New();
  email->name = plan.address.local;
  email->domain = static_cast<int>(plan.domain->id);
  email->owner = static_cast<int>(plan.owner->id);
  email->home = plan.home;
  email->quota = plan.quota;
  email->active = true;
  if (PasswordBackend() == nullptr) {
    email->password = password;
  }
  email->Post();
  return email;
}

}  // namespace

std::string DefaultHome(const std::string& owner_home, const Address& address) {
  return owner_home + "/mail/" + address.domain + "/" + address.local;
}

std::unique_ptr<BegunHash> BeginToAdd(const NewMailbox& mailbox) {
  try {
    CheckValues(mailbox);
  } catch (const mgr_err::Error&) {
    return nullptr;
  }
  return BeginHash(mailbox.address, mailbox.password, HashFor::kNewMailbox);
}

MailboxInfo AddMailbox(const NewMailbox& mailbox) {
  Plan plan = CheckValues(mailbox);
  MailBackend();
  const auto hash = BeginHash(mailbox.address, mailbox.password, HashFor::kNewMailbox);
  MailboxInfo added;
  DoRequest("mailbox add", [&](Request& request) {
    InNameOf("mailbox", plan.address.Full(), [&] { FindPlace(plan, mailbox.home); });
    JobLog::Watch(kMailbox, plan.address.Full());
    DeferSaves line(DeferSaves::Between::kNever);
    Mailbox email;
    InNameOf("mailbox", plan.address.Full(), [&] { email = InsertRow(plan, mailbox.password); });
    MakeLine(email, mailbox.password);
    if (HoldsMail(*plan.owner, plan.home)) {
      request.AddNote(plan.home + "/.maildir was there already and holds mail, which mailbox " +
                      plan.address.Full() + " takes over");
    }
    request.AnnounceJobs();  // with the line's step: one wait for the disk does for both
    line.Save();
    added = ShowMailbox(plan.address.Full());  // nothing may fail once it is committed
  });
  return added;
}

std::vector<MailboxInfo> ListMailboxes() {
  std::vector<MailboxInfo> mailboxes;
  for (const Row& row : Rows("", {})) {
    mailboxes.push_back(Info(row));
  }
  return mailboxes;
}

MailboxInfo ShowMailbox(const std::string& address) {
  const Address stored = ParseAddress(address);
  const std::vector<Row> rows =
      Rows("WHERE domains.name = :v1 AND mailboxes.name = :v2", {stored.domain, stored.local});
  if (rows.empty()) {
    throw mgr_err::Error("missed", "mailbox", stored.Full());
  }
  return Info(rows.front());
}

}  // namespace brisq_panel
