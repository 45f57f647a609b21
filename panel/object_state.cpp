#include "panel/object_state.h"

#include <array>
#include <cstdio>

#include "panel/names.h"
#include "panel/password_line.h"
#include "panel/records.h"
#include "panel/state_at.h"

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

// Only looked at, so that a link which somebody puts on the way shows no more than another state.
ObjectState AccessState(const std::string& path) {
  const auto state = StateAt(path, Links::kStay);
  if (!state) {
    return {};
  }
  return AccessValues({state->st_mode & 07777, state->st_uid, state->st_gid});
}

}  // namespace

ObjectState AccessValues(const file_access::Access& access) {
  std::array<char, 8> mode{};
  std::snprintf(mode.data(), mode.size(), "%04o", static_cast<unsigned>(access.mode));
  return {{"mode", mode.data()},
          {"uid", std::to_string(access.uid)},
          {"gid", std::to_string(access.gid)}};
}

file_access::Access AccessIn(const ObjectState& state) {
  const auto number = [&](const char* name, int base) {
    return static_cast<unsigned>(std::stoul(state.at(name), nullptr, base));
  };
  return {number("mode", 8), number("uid", 10), number("gid", 10)};
}

ObjectState StateOf(const std::string& kind, const std::string& name) {
  if (kind == kMailbox) {
    return MailboxState(name);
  }
  if (kind == kLine) {
    return StoredLine(name);
  }
  if (kind == kAccess) {
    return AccessState(name);
  }
  return kind == kDomain ? DomainState(name) : OwnerState(name);
}

}  // namespace brisq_panel
