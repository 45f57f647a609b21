#pragma once

#include "brisq_api.h"

namespace brisqpriv_email_dovecot {

/// The action "dovecot.certs.check", for administrators: removes certificate snippets whose
/// certificate or key file has vanished. Reads nothing from its session and answers nothing.
class ActionDovecotCertsCheck : public brisq_api::Action {
 public:
  ActionDovecotCertsCheck();

  /// One run over the snippet directory. Removals are immediate and ask for no reload: Dovecot goes
  /// on with what it has loaded.
  /// @throws mgr_err::Error "file" at the first snippet that can't be read: the rest waits for the
  /// next run
  void Execute(brisq_api::Session& session) const override;
};

}  // namespace brisqpriv_email_dovecot
