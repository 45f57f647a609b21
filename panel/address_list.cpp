#include "panel/address_list.h"

#include <algorithm>
#include <initializer_list>
#include <set>
#include <string_view>

#include "mgr_err.h"

namespace brisq_panel {

namespace {

using Types = std::initializer_list<std::string_view>;

[[noreturn]] void ThrowWith(const std::string& thing, const mgr_err::Error& error) {
  mgr_err::Error named(error.type(), thing + (error.object().empty() ? "" : ": " + error.object()),
                       error.value());
  if (error.report()) {
    named.set_report();
  }
  throw named;
}

// Others name what they are about, a file or a lock, which is nobody's own.
bool LacksName(const mgr_err::Error& error, const std::string& name, Types types) {
  return std::find(types.begin(), types.end(), error.type()) != types.end() &&
         !error.object().starts_with('/') && error.object().find(name) == std::string::npos &&
         error.value().find(name) == std::string::npos;
}

void Named(const std::string& kind, const std::string& name, Types types,
           const std::function<void()>& work) {
  try {
    work();
  } catch (const mgr_err::Error& error) {
    if (!LacksName(error, name, types)) {
      throw;
    }
    ThrowWith(kind + " " + name, error);
  }
}

Address Parse(const std::vector<std::string>& texts, std::size_t at) {
  try {
    return ParseAddress(texts[at]);
  } catch (const mgr_err::Error& error) {
    if (texts.size() == 1) {
      throw;
    }
    ThrowWith("address " + std::to_string(at + 1) + " of " + std::to_string(texts.size()), error);
  }
}

}  // namespace

std::vector<Address> ParseAddresses(const std::vector<std::string>& texts) {
  std::vector<Address> addresses;
  std::set<std::string> known;
  for (std::size_t at = 0; at < texts.size(); ++at) {
    addresses.push_back(Parse(texts, at));
    if (!known.insert(addresses.back().Full()).second) {
      throw mgr_err::Error("value", "mailbox", addresses.back().Full() + " is given twice");
    }
  }
  return addresses;
}

void ForEachAddress(const std::vector<Address>& addresses,
                    const std::function<void(const Address&)>& work) {
  for (const Address& address : addresses) {
    Named("mailbox", address.Full(), {"value", "limit", "missed", "exists", "email"},
          [&] { work(address); });
  }
}

void InNameOf(const std::string& kind, const std::string& name, const std::function<void()>& work) {
  Named(kind, name, {"value", "limit"}, work);
}

}  // namespace brisq_panel
