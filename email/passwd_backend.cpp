#include "passwd_backend.h"

#include <algorithm>
#include <list>

#include "brisq_db.h"
#include "email_dovecot.h"
#include "mgr_cf.h"
#include "mgr_proc.h"
#include "passwd_file.h"
#include "str.h"

namespace brisqpriv_email_dovecot {
namespace {

using Schemes = std::list<std::string>;

bool Contains(const Schemes& schemes, const std::string& scheme) {
  return std::find(schemes.begin(), schemes.end(), scheme) != schemes.end();
}

Schemes SupportedSchemes(const std::string& pw_command) {
  mgr_proc::Execute listing(pw_command + " -l", 2);
  const std::string output = listing.Str();
  Schemes schemes;
  if (listing.Result() == 0) {
    str::Split(output, " ", schemes);
  } else if (email_log.Check(mgr_log::kError)) {
    email_log.Write(mgr_log::kError, "doveadm call failed: %s", output.c_str());
  }
  return schemes;
}

std::string DefaultScheme(const Schemes& schemes) {
  if (Contains(schemes, "CRAM-MD5")) {
    if (email_log.Check(mgr_log::kDebug)) {
      email_log.Write(mgr_log::kDebug, "%s:%d Using CRAM-MD5 as default DovecotPwScheme",
                      DebugSource().c_str(), __LINE__);
    }
    return "CRAM-MD5";
  }
  if (email_log.Check(mgr_log::kDebug)) {
    email_log.Write(mgr_log::kDebug, "%s:%d Using CLEARTEXT as default DovecotPwScheme",
                    DebugSource().c_str(), __LINE__);
  }
  return "CLEARTEXT";
}

/// The administrator's wish when the installed Dovecot lists it by exactly that name.
std::string ChooseScheme(const std::string& pw_command) {
  std::string wish = mgr_cf::GetParam("DovecotPwScheme");
  const Schemes schemes = SupportedSchemes(pw_command);
  // An empty entry, as white space in the listing leaves it, is no scheme.
  if (!wish.empty() && Contains(schemes, wish)) return wish;
  if (email_log.Check(mgr_log::kWarning)) {
    email_log.Write(mgr_log::kWarning, "Specified DovecotPwScheme %s isn't supported by dovecot.",
                    wish.c_str());
  }
  return DefaultScheme(schemes);
}

}  // namespace

DovecotInterface::DovPwdInterface::DovPwdInterface()
    : passwd_path(mgr_cf::GetPath("dovecot-passwd")),
      pw_command(mgr_cf::GetPath("dovecot-doveadm") + " pw"),
      pw_scheme(ChooseScheme(pw_command)) {}

void DovecotInterface::DovPwdInterface::CachePasswords() {
  const auto line = DovPasswdConfig::Get<DovPasswd>(passwd_path, true);
  const auto mailboxes = brisq_db::GetCache().Get<brisq_db::EmailTable>();
  const auto domains = brisq_db::GetCache().Get<brisq_db::EmailDomainTable>();
  for (line->First(); !line->Eof(); line->Next()) {
    if (!email::FindByEmailName(line->name.Str(), mailboxes, domains)) continue;
    const std::string password = mailboxes->password;
    if (password.empty()) continue;
    // Some schemes mix the address in, and the panel's spelling of it is the one that counts.
    const std::string address = std::string(mailboxes->name) + "@" + std::string(domains->name);
    const std::string hash = CryptPw(address, password);
    if (line->passwd.Str() == hash) continue;
    line->passwd.Set(hash);
    line->Post("");
  }
}

void DovecotInterface::DovPwdInterface::Create(const std::string& name,
                                               const std::string& password) {
  Update(name, password);
}

void DovecotInterface::DovPwdInterface::Update(const std::string& name,
                                               const std::string& password) {
  if (password.empty()) return;
  const auto line = DovPasswdConfig::Get<DovPasswd>(passwd_path, true);
  line->Assert(name);
  line->passwd.Set(CryptPw(name, password));
  line->Post("");
}

void DovecotInterface::DovPwdInterface::Delete(const std::string& name) {
  const auto line = DovPasswdConfig::Get<DovPasswd>(passwd_path, true);
  if (line->Find(name)) line->_Delete(true);
}

std::string DovecotInterface::DovPwdInterface::CryptPw(const std::string& name,
                                                       std::string password) const {
  mgr_proc::Execute tool(pw_command + " -s " + pw_scheme + " -u " + name, 3);
  password += '\n';
  // The tool asks for the password and for its repetition.
  tool.In() << password << password;
  if (tool.Result() != 0) throw email::Fail("doveadm", tool.Str());
  return str::Trim(tool.Str());
}

}  // namespace brisqpriv_email_dovecot
