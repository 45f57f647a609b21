#include "passwd_file.h"

#include "brisq_api.h"
#include "email_dovecot.h"

namespace brisqpriv_email_dovecot {
namespace {

// Fixed, so that scripts that watch the log may rely on the whole message.
constexpr int kReloadMessageLine = 64;

}  // namespace

DovPasswd::DovPasswd()
    : ConfDataSet(nullptr),
      name(this, "name"),
      passwd(this, "passwd"),
      uid(this, "uid", &test::Trim<&test::Numeric>),
      gid(this, "gid", &test::Trim<&test::Numeric>),
      info(this, "info"),
      home(this, "home"),
      shell(this, "shell"),
      flags(this, "flags"),
      maildir(this, "maildir") {}

DovPasswdConfig::DovPasswdConfig() {
  RegisterSyntax(UnixConfParams());
  RegisterAfterSave();
  RegisterDataSet<DovPasswd>();
}

void DovPasswdConfig::AfterSave(ConfRef&, ConfCache::SaveReason& reason) {
  if (reason != ConfCache::srWritten) return;
  if (email_log.Check(mgr_log::kDebug)) {
    email_log.Write(mgr_log::kDebug, "%s:%d reload dovecot config", DebugSource().c_str(),
                    kReloadMessageLine);
  }
  brisq_api::InternalCall("dovecot.reload", "");
}

}  // namespace brisqpriv_email_dovecot
