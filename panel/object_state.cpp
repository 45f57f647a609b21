#include "panel/object_state.h"

#include "panel/names.h"
#include "panel/password_line.h"
#include "panel/records.h"

namespace brisq_panel {

namespace {

std::string NameOfOwner(int id) {
  const auto owner = Table<brisq_db::User>();
  owner->Assert(id);
  return owner->name;
}

ObjectState MailboxState(const std::string& name) {
  const Address address = ParseAddress(name);
  const auto domain = Table<brisq_db::EmailDomainTable>();
  const auto mailbox = Table<brisq_db::EmailTable>();
  if (!domain->DbFind({{"name", address.domain}}) ||
      !mailbox->DbFind({{"domain", domain->id.AsString()}, {"name", address.local}})) {
    return {};
  }
  return {{"owner", NameOfOwner(mailbox->owner)},
          {"home", mailbox->home},
          {"quota", mailbox->quota},
          {"active", mailbox->active.AsString()},
          {kKeptPassword, mailbox->password.Stored()},
          {kHash, mailbox->active ? StoredHash(name).value_or("") : ""}};
}

ObjectState DomainState(const std::string& name) {
  const auto domain = Table<brisq_db::EmailDomainTable>();
  if (!domain->DbFind({{"name", name}})) {
    return {};
  }
  return {{"owner", NameOfOwner(domain->owner)},
          {"active", domain->active.AsString()},
          {"cert", domain->cert},
          {"key", domain->key}};
}

ObjectState OwnerState(const std::string& name) {
  const auto owner = Table<brisq_db::User>();
  if (!owner->DbFind({{"name", name}})) {
    return {};
  }
  return {{"uid", owner->uid.AsString()}, {"gid", owner->gid.AsString()}, {"home", owner->home}};
}

}  // namespace

ObjectState StateOf(const std::string& kind, const std::string& name) {
  if (kind == kMailbox) {
    return MailboxState(name);
  }
  return kind == kDomain ? DomainState(name) : OwnerState(name);
}

}  // namespace brisq_panel
