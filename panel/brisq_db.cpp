#include "brisq_db.h"

#include <typeinfo>

#include "framework/database.h"
#include "framework/request.h"
#include "panel/archive.h"
#include "panel/file_stamps.h"
#include "panel/panel_state.h"
#include "panel/refresh_watch.h"
#include "panel/spared_mailboxes.h"

namespace brisq_db {

namespace {

template <class T>
mgr_db::CustomTable* Make() {
  return new T;
}

template <class T>
void AddClass(mgr_db::Cache& cache) {
  cache.Add(typeid(T).name(), &Make<T>);
}

mgr_db::Cache* MakeCache() {
  auto* cache = new mgr_db::Cache;
  AddClass<User>(*cache);
  AddClass<EmailDomainTable>(*cache);
  AddClass<EmailTable>(*cache);
  AddClass<brisq_panel::MailboxArchive>(*cache);
  AddClass<brisq_panel::FileStamps>(*cache);
  AddClass<brisq_panel::PanelState>(*cache);
  return cache;
}

}  // namespace

User::User()
    : CustomTable("owners"),
      id(this, "id"),
      name(this, "name"),
      uid(this, "uid"),
      gid(this, "gid"),
      home(this, "home") {}
User::~User() = default;

uid_t User::OwnerUid() const { return static_cast<uid_t>(static_cast<int>(uid)); }
gid_t User::OwnerGid() const { return static_cast<gid_t>(static_cast<int>(gid)); }
std::string User::OwnerHome() const { return home; }

std::string User::Schema() const {
  return "CREATE TABLE IF NOT EXISTS owners ("
         "id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT NOT NULL UNIQUE,"
         "uid INTEGER NOT NULL CHECK (uid > 0), gid INTEGER NOT NULL CHECK (gid > 0),"
         "home TEXT NOT NULL)";
}

EmailDomainTable::EmailDomainTable()
    : CustomTable("domains"),
      id(this, "id"),
      name(this, "name"),
      owner(this, "owner"),
      active(this, "active"),
      cert(this, "cert"),
      key(this, "key") {
  SetKey({&name});
}
EmailDomainTable::~EmailDomainTable() = default;

std::string EmailDomainTable::Schema() const {
  return "CREATE TABLE IF NOT EXISTS domains ("
         "id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT NOT NULL UNIQUE,"
         "owner INTEGER NOT NULL REFERENCES owners (id), active TEXT NOT NULL,"
         "cert TEXT NOT NULL, key TEXT NOT NULL);"
         "CREATE INDEX IF NOT EXISTS domains_of_owner ON domains (owner)";
}

EmailTable::EmailTable()
    : CustomTable("mailboxes"),
      id(this, "id"),
      name(this, "name"),
      domain(this, "domain"),
      owner(this, "owner"),
      password(this, "password"),
      pwupdate(this, "pwupdate"),
      home(this, "home"),
      quota(this, "quota"),
      used(this, "used"),
      active(this, "active"),
      tag(this, "tag") {
  SetKey({&domain, &name});
  SetMark(tag);
}
EmailTable::~EmailTable() = default;

std::string EmailTable::Schema() const {
  return "CREATE TABLE IF NOT EXISTS mailboxes ("
         "id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT NOT NULL,"
         "domain INTEGER NOT NULL REFERENCES domains (id),"
         "owner INTEGER NOT NULL REFERENCES owners (id), password TEXT NOT NULL,"
         "pwupdate TEXT NOT NULL, home TEXT NOT NULL, quota TEXT NOT NULL, used INTEGER NOT NULL,"
         "active TEXT NOT NULL, tag INTEGER NOT NULL, UNIQUE (domain, name));"
         "CREATE INDEX IF NOT EXISTS mailboxes_of_owner ON mailboxes (owner);"
         "CREATE INDEX IF NOT EXISTS mailboxes_of_home ON mailboxes (home)";
}

namespace {

void SweepRows(const std::string& wanted) {
  if (!brisq_panel::IsAnyMailbox(wanted)) {
    return;  // the usual case: one look at all rows instead of several
  }
  const std::string condition = wanted + brisq_panel::SparedMailboxes(wanted);
  brisq_panel::RefuseLargeSweep(condition);
  brisq_panel::ArchiveMailboxes(condition, brisq_panel::kSwept);
  mgr_db::ThreadConnection()->Change("DELETE FROM mailboxes WHERE " + condition);
}

}  // namespace

void EmailTable::DbDelete(const std::string& condition) {
  brisq_panel::RefreshWatch::SawSweep();
  const std::string limited = "(" + condition + ")" + brisq_panel::RefreshWatch::SweepLimit();
  if (Request::Current() != nullptr) {
    SweepRows(limited);
    return;
  }
  // Never a row that is gone and not kept, nor one that is kept and not gone.
  Request request("mailbox sweep");
  // What was changed before is durable then, and nobody waits for it while back-ends hash.
  mgr_db::ThreadConnection()->LockForWriting();
  SweepRows(limited);
  request.Commit();
}

mgr_db::Cache& GetCache() {
  static mgr_db::Cache& cache = *MakeCache();  // tables may come back while the process ends
  return cache;
}

}  // namespace brisq_db
