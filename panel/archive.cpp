#include "panel/archive.h"

#include <algorithm>

#include "framework/database.h"
#include "framework/number.h"
#include "framework/utc.h"
#include "mgr_cf.h"
#include "mgr_err.h"
#include "panel/records.h"
#include "str.h"

namespace brisq_panel {

namespace {

constexpr long long kSmallSweep = 10;
constexpr double kDefaultLimit = 30;

thread_local int g_permits = 0;

long long Count(const std::string& condition) {
  const auto rows =
      mgr_db::ThreadConnection()->Query("SELECT COUNT(*) FROM mailboxes WHERE " + condition, {}, 1);
  return str::Int(rows.front().front());
}

double LimitPercent() {
  return ReadNumber(mgr_cf::GetParam("EmailSweepLimit")).value_or(kDefaultLimit);
}

}  // namespace

MailboxArchive::MailboxArchive()
    : CustomTable("mailbox_archive"),
      id(this, "id"),
      name(this, "name"),
      domain(this, "domain"),
      owner(this, "owner"),
      password(this, "password"),
      hash(this, "hash"),
      home(this, "home"),
      quota(this, "quota"),
      used(this, "used"),
      active(this, "active"),
      reason(this, "reason"),
      archived(this, "archived") {}

std::string MailboxArchive::Schema() const {
  return CustomTable::Schema() +
         ";CREATE INDEX IF NOT EXISTS mailbox_archive_of_name ON mailbox_archive (name, domain)";
}

void ArchiveMailboxes(const std::string& condition, const std::string& reason) {
  mgr_db::ThreadConnection()->Change(
      "INSERT INTO mailbox_archive (name, domain, owner, password, hash, home, quota, used, active,"
      " reason, archived) "
      "SELECT mailboxes.name, domains.name, owners.name, mailboxes.password, '', mailboxes.home,"
      " mailboxes.quota, mailboxes.used, mailboxes.active, :v1, :v2 "
      "FROM mailboxes JOIN domains ON domains.id = mailboxes.domain"
      " JOIN owners ON owners.id = mailboxes.owner "
      "WHERE mailboxes.id IN (SELECT id FROM mailboxes WHERE " +
          condition + ")",
      {reason, UtcNow()});
}

void ArchiveMailbox(const std::shared_ptr<brisq_db::EmailTable>& mailbox, const std::string& reason,
                    const std::string& hash) {
  ArchiveMailboxes("id = " + mailbox->id.AsString(), reason);
  const auto archive = Table<MailboxArchive>();
  archive->Assert(str::Int(mgr_db::ThreadConnection()
                               ->Query("SELECT MAX(id) FROM mailbox_archive", {}, 1)
                               .front()
                               .front()));
  archive->hash = hash;
  archive->Post();
}

std::vector<std::shared_ptr<MailboxArchive>> AllArchived(const Address& address,
                                                         const std::vector<std::string>& reasons) {
  std::vector<std::shared_ptr<MailboxArchive>> rows;
  const auto archive = Table<MailboxArchive>();
  for (const std::string& reason : reasons) {
    archive->DbSelect({{"name", address.local}, {"domain", address.domain}, {"reason", reason}});
    for (; !archive->Eof(); archive->Next()) {
      rows.push_back(Table<MailboxArchive>());
      rows.back()->Assert(archive->id);
    }
  }
  std::sort(rows.begin(), rows.end(),
            [](const auto& left, const auto& right) { return left->id > right->id; });
  return rows;
}

std::shared_ptr<MailboxArchive> FindArchived(const Address& address,
                                             const std::vector<std::string>& reasons) {
  const auto rows = AllArchived(address, reasons);
  return rows.empty() ? nullptr : rows.front();
}

std::shared_ptr<MailboxArchive> FindSwitchedOff(const Address& address) {
  return FindArchived(address, {kSwitchedOff, kOffWithDomain});
}

SweepPermit::SweepPermit() { ++g_permits; }
SweepPermit::~SweepPermit() { --g_permits; }
bool SweepPermit::Given() noexcept { return g_permits > 0; }

bool IsAnyMailbox(const std::string& condition) {
  return !mgr_db::ThreadConnection()
              ->Query("SELECT id FROM mailboxes WHERE " + condition + " LIMIT 1", {}, 1)
              .empty();
}

void RefuseLargeSweep(const std::string& condition) {
  if (SweepPermit::Given()) {
    return;
  }
  const long long taken = Count("(" + condition + ") AND active = 'on'");
  const long long all = taken > kSmallSweep ? Count("active = 'on'") : 0;
  if (taken > kSmallSweep &&
      static_cast<double>(taken * 100) > static_cast<double>(all) * LimitPercent()) {
    throw mgr_err::Error("limit", "refresh",
                         str::Str(static_cast<long>(taken)) + " of " +
                             str::Str(static_cast<long>(all)) +
                             " active mailboxes would be swept, more than EmailSweepLimit allows;"
                             " \"refresh --sweep\" does it all the same");
  }
}

}  // namespace brisq_panel
