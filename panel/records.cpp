#include "panel/records.h"

#include <typeinfo>

#include "framework/database.h"
#include "framework/job_table.h"
#include "framework/request.h"
#include "mgr_err.h"
#include "panel/archive.h"
#include "panel/file_stamps.h"
#include "panel/panel_state.h"
#include "str.h"

namespace brisq_panel {

std::shared_ptr<brisq_db::User> FindOwner(const std::string& name) {
  auto owner = Table<brisq_db::User>();
  if (!owner->DbFind({{"name", name}})) {
    throw mgr_err::Error("missed", "owner", name);
  }
  return owner;
}

std::shared_ptr<brisq_db::EmailDomainTable> FindDomain(const std::string& name) {
  auto domain = Table<brisq_db::EmailDomainTable>();
  if (!domain->DbFind({{"name", name}})) {
    throw mgr_err::Error("missed", "domain", name);
  }
  return domain;
}

std::shared_ptr<brisq_db::EmailTable> FindMailbox(const Address& address) {
  const mgr_err::Error missed("missed", "mailbox", address.Full());
  auto domain = Table<brisq_db::EmailDomainTable>();
  if (!domain->DbFind({{"name", address.domain}})) {
    throw missed;
  }
  auto email = Table<brisq_db::EmailTable>();
  if (!email->DbFind({{"domain", domain->id.AsString()}, {"name", address.local}})) {
    throw missed;
  }
  return email;
}

namespace {

using Row = mgr_db::Connection::Row;

std::string FirstOf(const std::vector<Row>& rows) {
  return rows.empty() ? std::string() : rows.front().front();
}

// 0 for data that has no mark: of an empty file, or of the program as it was before there was one.
int VersionOfData() {
  return str::Int(FirstOf(mgr_db::ThreadConnection()->Query("PRAGMA user_version", {}, 1)));
}

void RefuseLater(int version) {
  if (version > kDataVersion) {
    const auto files = mgr_db::ThreadConnection()->Query(
        "SELECT file FROM pragma_database_list WHERE name = 'main'", {}, 1);
    throw mgr_err::Error("db", FirstOf(files),
                         "its data is of version " + std::to_string(version) +
                             ", and this program knows versions up to " +
                             std::to_string(kDataVersion) +
                             ": use the program that wrote it, or a later one");
  }
}

void CreateTables() {
  mgr_db::CreateTables(brisq_db::GetCache(),
                       {typeid(brisq_db::User).name(), typeid(brisq_db::EmailDomainTable).name(),
                        typeid(brisq_db::EmailTable).name(), typeid(MailboxArchive).name(),
                        typeid(FileStamps).name(), typeid(PanelState).name()});
  job_table::Create();
}

// The first did not tell what went off with its domain, and brought all of it back.
void BringToSecondVersion() {
  mgr_db::ThreadConnection()->Change(
      "UPDATE mailbox_archive SET reason = :v1 WHERE reason = :v2 AND domain IN"
      " (SELECT name FROM domains WHERE active = 'off')",
      {kOffWithDomain, kSwitchedOff});
}

}  // namespace

void CreatePanelTables() {
  const int version = VersionOfData();
  RefuseLater(version);
  if (version == kDataVersion) {
    return CreateTables();
  }
  Request request("version of the data");
  mgr_db::ThreadConnection()->LockForWriting();
  RefuseLater(VersionOfData());  // a later program may have been first
  CreateTables();
  BringToSecondVersion();
  mgr_db::ThreadConnection()->Change("PRAGMA user_version = " + std::to_string(kDataVersion));
  request.Commit();
}

}  // namespace brisq_panel
