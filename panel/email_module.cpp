#include "panel/email_module.h"

#include <atomic>
#include <mutex>

#include "panel/hash_mask.h"
#include "panel/names.h"
#include "panel/records.h"
#include "panel/refresh_watch.h"

namespace brisq_panel {

namespace {

std::atomic<email::Pop3Interface*> g_mail{nullptr};
std::atomic<email::PasswdInterface*> g_passwords{nullptr};
std::mutex g_problem_mutex;

std::string& Problem() {
  static std::string& problem = *new std::string("none is registered");
  return problem;
}

}  // namespace

email::Pop3Interface& MailBackend() {
  if (email::Pop3Interface* backend = g_mail.load()) {
    return *backend;
  }
  const std::lock_guard lock(g_problem_mutex);
  throw mgr_err::Error("plugin", "mail back-end", Problem());
}

bool HasMailBackend() noexcept { return g_mail.load() != nullptr; }

email::PasswdInterface* PasswordBackend() noexcept { return g_passwords.load(); }

void SetBackendProblem(const std::string& reason) {
  const std::lock_guard lock(g_problem_mutex);
  Problem() = reason;
}

void ForgetBackends() noexcept {
  g_mail = nullptr;
  g_passwords = nullptr;
}

}  // namespace brisq_panel

namespace email {

namespace {

bool Stored(const std::string& name, brisq_panel::Address& address) {
  try {
    address = brisq_panel::ParseAddress(name);
    return true;
  } catch (const mgr_err::Error& error) {
    if (error.type() != "value") {
      throw;
    }
    return false;  // what can't be an address is no mailbox
  }
}

bool Find(const std::string& name, brisq_db::EmailTable& email,
          brisq_db::EmailDomainTable& domain) {
  brisq_panel::Address address;
  return Stored(name, address) && domain.DbFind({{"name", address.domain}}) &&
         email.DbFind({{"domain", domain.id.AsString()}, {"name", address.local}});
}

}  // namespace

Pop3Interface::~Pop3Interface() = default;
PasswdInterface::~PasswdInterface() = default;

Fail::Fail(const std::string& object, const std::string& value)
    : Error("email", object, brisq_panel::FailureOfTool(value)) {
  set_report();
}
Fail::Fail(const Fail&) = default;
Fail::~Fail() = default;

void RegisterPop3(Pop3Interface* interface) { brisq_panel::g_mail = interface; }

void RegisterPwdInterface(PasswdInterface* interface) { brisq_panel::g_passwords = interface; }

std::string GetEmailName(const std::shared_ptr<brisq_db::EmailTable>& email) {
  const auto domain = brisq_panel::Table<brisq_db::EmailDomainTable>();
  domain->Assert(email->domain);
  return std::string(email->name) + "@" + std::string(domain->name);
}

std::shared_ptr<brisq_db::User> GetEmailOwner(const std::shared_ptr<brisq_db::EmailTable>& email) {
  auto owner = brisq_panel::Table<brisq_db::User>();
  owner->Assert(email->owner);
  return owner;
}

bool FindByEmailName(const std::string& name, const std::shared_ptr<brisq_db::EmailTable>& email,
                     const std::shared_ptr<brisq_db::EmailDomainTable>& domain) {
  const bool found = Find(name, *email, *domain);
  brisq_panel::RefreshWatch::SawName(name, found);
  return found;
}

}  // namespace email
