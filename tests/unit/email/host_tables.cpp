// Stand-ins for the panel's tables: their rows are the host's script.
#include <cstdio>

#include "brisq_db.h"
#include "mgr_err.h"
#include "tests/unit/email/recording_host.h"

using recording::Host;

namespace mgr_db {

class Connection {};

Field::Field(CustomTable* table, const std::string& name) : name_(name) {
  table->fields_.push_back(this);
}
Field::~Field() = default;
std::string Field::AsString() const { return stored_; }
void Field::SetStored(const std::string& value) { stored_ = value; }

StringField::operator std::string() const { return Stored(); }
StringField& StringField::operator=(const std::string& value) {
  Assign(value);
  return *this;
}
const char* StringField::SqlType() const noexcept { return "TEXT"; }
void StringField::Assign(const std::string& value) {
  Host::Instance().Note("assign " + name() + " '" + value + "'");
  SetStored(value);
}

IntField::operator int() const { return Stored().empty() ? 0 : std::stoi(Stored()); }
IntField& IntField::operator=(int value) {
  Host::Instance().Note("assign " + name() + " " + std::to_string(value));
  SetStored(std::to_string(value));
  return *this;
}
std::string IntField::AsString() const { return Stored(); }
const char* IntField::SqlType() const noexcept { return "INTEGER"; }

BoolField::operator bool() const { return Stored() == "on"; }
BoolField& BoolField::operator=(bool value) {
  SetStored(value ? "on" : "off");
  return *this;
}
std::string BoolField::AsString() const { return Stored(); }
const char* BoolField::SqlType() const noexcept { return "TEXT"; }

SealedField::operator std::string() const {
  Host::Instance().Note("open " + name());
  return Stored();
}
void SealedField::Assign(const std::string& value) { SetStored(value); }

CustomTable::CustomTable(const std::string& table) : table_(table) {}
CustomTable::~CustomTable() = default;
std::string CustomTable::Schema() const { return {}; }
void CustomTable::DbDelete(const std::string&) {}

void CustomTable::Post() {
  Host::Instance().Note("Post " + table_);
  const auto& mailbox = dynamic_cast<brisq_db::EmailTable&>(*this);
  const std::string address = mailbox.name.Stored() + "@" + mailbox.domain.Stored();
  recording::Mailbox& row = Host::Instance().mailboxes.at(address);
  row.home = mailbox.home.Stored();
  row.used = mailbox.used;
  row.tag = mailbox.tag;
}

struct Cache::Stock {};
Cache::Cache() = default;
Cache::~Cache() = default;

CustomTable* Cache::Get(const std::string& name) {
  const bool is_mailbox = name == typeid(brisq_db::EmailTable).name();
  if (!is_mailbox && name != typeid(brisq_db::EmailDomainTable).name()) {
    throw mgr_err::Error("internal", "table", name);
  }
  Host::Instance().Note(is_mailbox ? "take email" : "take domain");
  ++Host::Instance().tables_out;
  if (is_mailbox) return new brisq_db::EmailTable;
  return new brisq_db::EmailDomainTable;
}

void Cache::Put(CustomTable* table) noexcept {
  Host::Instance().NoteQuietly("give back " + table->TableName());
  --Host::Instance().tables_out;
  delete table;
}

}  // namespace mgr_db

namespace brisq_db {

User::User()
    : CustomTable("user"),
      id(this, "id"),
      name(this, "name"),
      uid(this, "uid"),
      gid(this, "gid"),
      home(this, "home") {}
User::~User() = default;
uid_t User::OwnerUid() const { return static_cast<uid_t>(std::stoul(uid.Stored())); }
gid_t User::OwnerGid() const { return static_cast<gid_t>(std::stoul(gid.Stored())); }
std::string User::OwnerHome() const { return home.Stored(); }
std::string User::Schema() const { return {}; }

EmailDomainTable::EmailDomainTable()
    : CustomTable("domain"),
      id(this, "id"),
      name(this, "name"),
      owner(this, "owner"),
      active(this, "active"),
      cert(this, "cert"),
      key(this, "key") {}
EmailDomainTable::~EmailDomainTable() = default;
std::string EmailDomainTable::Schema() const { return {}; }

EmailTable::EmailTable()
    : CustomTable("email"),
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
      tag(this, "tag") {}
EmailTable::~EmailTable() = default;
std::string EmailTable::Schema() const { return {}; }

// Understands the one condition that the plug-in forms, as the database would.
void EmailTable::DbDelete(const std::string& condition) {
  Host::Instance().Note("DbDelete " + condition);
  int marked = 0;
  int length = 0;
  if (std::sscanf(condition.c_str(), "tag != %d AND active = 'on'%n", &marked, &length) != 1 ||
      static_cast<std::size_t>(length) != condition.size()) {
    throw mgr_err::Error("db", "condition", condition);
  }
  std::erase_if(Host::Instance().mailboxes, [&](const auto& mailbox) {
    return mailbox.second.tag != marked && mailbox.second.active;
  });
}

mgr_db::Cache& GetCache() {
  static mgr_db::Cache cache;
  return cache;
}

bool FileIsChanged(const std::string& path, std::string& text) {
  Host::Instance().Note("FileIsChanged " + path + " '" + text + "'");
  text = "what has changed";
  return Host::Instance().file_changed;
}

}  // namespace brisq_db
