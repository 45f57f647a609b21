#include "panel/domains.h"

#include "framework/database.h"
#include "panel/address_list.h"
#include "panel/job_log.h"
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
      "SELECT domains.name, owners.name, domains.active, domains.cert, domains.key,"
      " (SELECT COUNT(*) FROM mailboxes WHERE mailboxes.domain = domains.id) "
      "FROM domains JOIN owners ON owners.id = domains.owner " +
          condition + " ORDER BY domains.name",
      values, kColumns);
}

DomainInfo Info(const Row& row) {
  DomainInfo info;
  info.name = row[0];
  info.owner = row[1];
  info.active = row[2] == "on";
  info.cert = row[3];
  info.key = row[4];
  info.mailboxes = str::Int(row[5]);
  return info;
}

void InsertRow(const std::string& name, const std::string& owner) {
  const auto domain = Table<brisq_db::EmailDomainTable>();
  if (domain->DbFind({{"name", name}})) {
    throw mgr_err::Error("exists", "domain", name);
  }
  domain->New();
  domain->name = name;
  domain->owner = static_cast<int>(FindOwner(owner)->id);
  domain->active = true;
  domain->Post();
}

}  // namespace

DomainInfo AddDomain(const std::string& name, const std::string& owner) {
  const std::string stored = CheckDomain(name);
  std::string owner_name;
  InNameOf("domain", stored, [&] { owner_name = CheckOwnerName(owner); });
  DoRequest("domain add", [&](Request&) {
    JobLog::Watch(kDomain, stored);
    InsertRow(stored, owner_name);
  });
  return ShowDomain(stored);
}

std::vector<DomainInfo> ListDomains() {
  std::vector<DomainInfo> domains;
  for (const Row& row : Rows("", {})) {
    domains.push_back(Info(row));
  }
  return domains;
}

DomainInfo ShowDomain(const std::string& name) {
  const std::string stored = CheckDomain(name);
  const std::vector<Row> rows = Rows("WHERE domains.name = :v1", {stored});
  if (rows.empty()) {
    throw mgr_err::Error("missed", "domain", stored);
  }
  return Info(rows.front());
}

}  // namespace brisq_panel
