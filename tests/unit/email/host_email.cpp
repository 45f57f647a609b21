// Stand-ins for the panel's email module.
#include "email.h"
#include "tests/unit/email/recording_host.h"

using recording::Host;

template class Singleton<email::box::DelayedStart>;

namespace email {

Pop3Interface::~Pop3Interface() { Host::Instance().NoteQuietly("~Pop3Interface"); }
PasswdInterface::~PasswdInterface() { Host::Instance().NoteQuietly("~PasswdInterface"); }

void RegisterPop3(Pop3Interface* interface) {
  Host::Instance().pop3 = interface;  // first: a call that fails must not lose the object
  Host::Instance().Note("RegisterPop3");
}

void RegisterPwdInterface(PasswdInterface* interface) {
  Host::Instance().Note("RegisterPwdInterface");
  Host::Instance().passwords = interface;
}

std::string GetEmailName(const std::shared_ptr<brisq_db::EmailTable>& email) {
  Host::Instance().Note("GetEmailName");
  return email->name.Stored() + "@" + email->domain.Stored();
}

std::shared_ptr<brisq_db::User> GetEmailOwner(const std::shared_ptr<brisq_db::EmailTable>&) {
  Host::Instance().Note("GetEmailOwner");
  return Host::Instance().owner;
}

bool FindByEmailName(const std::string& name, const std::shared_ptr<brisq_db::EmailTable>& email,
                     const std::shared_ptr<brisq_db::EmailDomainTable>& domain) {
  Host& host = Host::Instance();
  host.Note("FindByEmailName " + name);
  const auto spelling = host.spelled.find(name);
  const auto found = host.mailboxes.find(spelling == host.spelled.end() ? name : spelling->second);
  if (found == host.mailboxes.end()) return false;
  const recording::Mailbox& row = found->second;
  email->name.SetStored(row.local);
  email->domain.SetStored(row.domain);
  email->password.SetStored(row.password);
  email->home.SetStored(row.home);
  email->used.SetStored(std::to_string(row.used));
  email->tag.SetStored(std::to_string(row.tag));
  domain->name.SetStored(row.domain);
  return true;
}

Fail::Fail(const std::string& object, const std::string& value) : Error("email", object, value) {
  set_report();
}
Fail::Fail(const Fail&) = default;
Fail::~Fail() = default;

EmailReload::~EmailReload() = default;

namespace domain {

std::string CreateSymbLink(const std::string& domain, const std::string& directory,
                           const std::string& file, const std::string& suffix) {
  Host::Instance().Note("CreateSymbLink " + domain + " " + directory + " '" + file + "' " + suffix);
  return directory + "/link-of-" + domain + suffix;
}

void CleenUpCerts(const std::shared_ptr<brisq_db::EmailDomainTable>& domain,
                  const std::string& event, const std::string& backend) {
  Host::Instance().Note("CleenUpCerts " + domain->name.Stored() + " " + event + " " + backend);
}

}  // namespace domain

namespace box {

bool DelayedStart::EmailDelay() {
  const std::lock_guard lock(mutex_);
  Host::Instance().Note("EmailDelay");
  return Host::Instance().may_run_password_work;
}

}  // namespace box
}  // namespace email
