#include "certificates.h"

#include "dovecot_interface.h"
#include "email_dovecot.h"
#include "mgr_cf.h"
#include "mgr_file.h"
#include "mgr_job.h"
#include "str.h"
#include "test.h"

namespace brisqpriv_email_dovecot {
namespace {

// A snippet's two settings: TAB, name, kAssign, path. "<" has Dovecot read the value from the file.
constexpr const char* kCertSetting = "ssl_cert";
constexpr const char* kKeySetting = "ssl_key";
constexpr const char* kAssign = " = <";

std::string Setting(const std::string& name) { return "\t" + name + kAssign; }

/// `local` selects by the address that the client connected to, `local_name` by the name that it
/// asked for.
std::string Keyword(std::string domain) { return test::Ip(domain) ? "local" : "local_name"; }

std::string Snippet(const std::string& domain, const std::string& cert, const std::string& key) {
  return Keyword(domain) + " " + domain + " {\n" +  //
         Setting(kCertSetting) + cert + "\n" +      //
         Setting(kKeySetting) + key + "\n" +        //
         "}\n";
}

/// Path in the next line of `text`, which is taken off; empty when the line is not this setting.
std::string TakePath(std::string& text, const char* setting) {
  const std::string line = str::GetWord(text, '\n');
  if (!str::StartsWith(line, Setting(setting))) return {};
  return str::RGetWord(line, kAssign);
}

bool IsMissed(const std::string& path) {
  return !path.empty() && mgr_file::Info(path, 2).IsMissed();
}

bool IsDangling(std::string snippet) {
  str::GetWord(snippet, '\n');
  const std::string cert = TakePath(snippet, kCertSetting);
  const std::string key = TakePath(snippet, kKeySetting);
  return IsMissed(cert) || IsMissed(key);
}

}  // namespace

void DovecotInterface::SetSSLCertForDomain(const std::string& domain, const std::string& cert,
                                           const std::string& key) {
  const std::string directory = mgr_cf::GetPath("dovecot-certconf");
  const std::string cert_link =
      email::domain::CreateSymbLink(domain, mgr_cf::GetPath("dovecot-ssl-certs"), cert, ".crt");
  const std::string key_link =
      email::domain::CreateSymbLink(domain, mgr_cf::GetPath("dovecot-ssl-certs"), key, ".key");
  const mgr_file::Attrs attrs(0600, 0, 0);
  if (!mgr_file::Exists(directory)) mgr_file::MkDir(directory, attrs);
  const std::string path = mgr_file::ConcatPath(directory, domain + ".conf");
  new mgr_job::CreateFile(path, Snippet(domain, cert_link, key_link), attrs);
  new mgr_job::CallOnCommit("dovecot.reload", "hard=on");
}

void DovecotInterface::OnUpdateDomain(std::shared_ptr<brisq_db::EmailDomainTable>& domain) {
  email::domain::CleenUpCerts(domain, "update", "dovecot");
}

void DovecotInterface::OnDeleteDomain(std::shared_ptr<brisq_db::EmailDomainTable>& domain) {
  email::domain::CleenUpCerts(domain, "delete", "dovecot");
}

ActionDovecotCertsCheck::ActionDovecotCertsCheck()
    : Action("dovecot.certs.check", kAdministratorOnly, nullptr) {}

void ActionDovecotCertsCheck::Execute(brisq_api::Session&) const {
  mgr_file::Dir snippets(mgr_cf::GetPath("dovecot-certconf"));
  while (snippets.Read()) {
    if (!snippets.HasExt(".conf")) continue;
    const std::string path = snippets.FullName();
    if (!IsDangling(mgr_file::ReadE(path))) continue;
    if (email_log.Check(mgr_log::kWarning)) {
      email_log.Write(mgr_log::kWarning,
                      "Remove config %s because it includes a cert file that does not exist",
                      path.c_str());
    }
    mgr_file::RemoveFile(path);
  }
}

}  // namespace brisqpriv_email_dovecot
