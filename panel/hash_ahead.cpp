#include "panel/hash_ahead.h"

#include <algorithm>
#include <exception>
#include <string_view>

#include "mgr_cf.h"
#include "panel/names.h"
#include "panel/records.h"

namespace brisq_panel {

namespace {

bool IsOfName(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '.';
}

// What the back-end takes when the tool lists it; empty for what can be no scheme's name.
std::string LikelyScheme() {
  const std::string wish = mgr_cf::GetParam("DovecotPwScheme");
  if (wish.empty()) {
    return "CRAM-MD5";
  }
  return std::all_of(wish.begin(), wish.end(), IsOfName) ? wish : std::string();
}

// The command by which the back-end will make the hash; empty when that can't be foreseen.
std::string LikelyCommand(const Address& address) {
  const std::string doveadm = mgr_cf::GetPath("dovecot-doveadm");
  const std::string scheme = LikelyScheme();
  if (mgr_cf::GetParam("POP3") != "dovecot" || doveadm.empty() || scheme.empty()) {
    return {};
  }
  return doveadm + " pw -s " + scheme + " -u " + address.Full();
}

// As things stand now; what counts is what the request finds.
bool WillBeAsked(const Address& address, HashFor what) {
  const auto domain = Table<brisq_db::EmailDomainTable>();
  if (!domain->DbFind({{"name", address.domain}})) {
    return false;
  }
  const auto email = Table<brisq_db::EmailTable>();
  const bool present = email->DbFind({{"domain", domain->id.AsString()}, {"name", address.local}});
  return what == HashFor::kNewMailbox ? domain->active && !present : present && email->active;
}

// The tool asks for the password and for its repetition.
void Answer(mgr_proc::SecretBuffer& input, const std::string& password) {
  for (int time = 0; time < 2; ++time) {
    input.sputn(password.data(), static_cast<std::streamsize>(password.size()));
    input.sputc('\n');
  }
}

}  // namespace

std::unique_ptr<BegunHash> BeginHash(const std::string& text, const std::string& password,
                                     HashFor what) {
  try {
    const Address address = ParseAddress(text);
    CheckPassword(password, mgr_cf::GetParam("DovecotPwScheme"));
    const std::string command = LikelyCommand(address);
    if (command.empty() || !WillBeAsked(address, what)) {
      return nullptr;
    }
    mgr_proc::SecretBuffer input;
    Answer(input, password);
    return std::make_unique<BegunHash>(command, input);
  } catch (const std::exception&) {
    return nullptr;
  }
}

}  // namespace brisq_panel
