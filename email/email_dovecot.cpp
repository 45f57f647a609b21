#include "email_dovecot.h"

#include "brisq_api.h"
#include "certificates.h"
#include "dovecot_interface.h"
#include "email.h"
#include "mgr_cf.h"
#include "mgr_file.h"
#include "passwd_backend.h"
#include "periodic.h"

namespace brisqpriv_email_dovecot {

// Defined before the factory, so that it is there whenever the host may call in.
mgr_log::Module email_log("email", "dormel");

std::string DebugSource() { return mgr_file::SplitPath("email/email_dovecot").second; }

namespace {

void DeclareBackEndDefaults() {
  mgr_cf::SetPathDefault("dovecot-passwd", "/etc/dovecot/dovecot.passwd");
  mgr_cf::SetPathDefault("dovecot-doveadm", "/usr/bin/doveadm");
  mgr_cf::SetPathDefault("dovecot-restart", "service dovecot restart");
  mgr_cf::AddParam("DovecotPwScheme", "");
}

void RegisterBackEnds() {
  auto* const mailboxes = new DovecotInterface;
  email::RegisterPop3(mailboxes);
  // Left unregistered the password back-end still serves the mailbox back-end.
  if (mgr_cf::GetParam("EmailAuth") == "dovecot") {
    email::RegisterPwdInterface(mailboxes->PasswordBackEnd());
  }
}

// Actions enter the host's table by construction and are never freed here.
void CreateActions() {
  const std::string reload = mgr_cf::GetPath("dovecot-doveadm") + " reload";
  const std::string restart = mgr_cf::GetPath("dovecot-restart");
  new email::EmailReload("email.reload", "dovecot.reload", "EmailReloadDelay", reload, restart);
  new ActionDovecotCertsCheck;
}  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks)

void ScheduleCertsCheck() {
  mgr_cf::AddParam("DovecotCheckPeriod", "5");
  periodic::RegisterAction("dovecot.certs.check", "", "DovecotCheckPeriod");
}

}  // namespace

/// The module: wires the plug-in into the host while it is constructed, when the parameter "POP3"
/// asks for it, and owns nothing of what it makes.
class __email_pop3Module : public brisq_api::Module {
 public:
  __email_pop3Module() : Module("email_pop3") {
    if (mgr_cf::GetParam("POP3") != "dovecot") return;
    DeclareBackEndDefaults();
    RegisterBackEnds();
    CreateActions();
    ScheduleCertsCheck();
  }
};

brisq_api::RegisterModule<__email_pop3Module> __email_pop3Fabric("email_interface");

}  // namespace brisqpriv_email_dovecot
