#pragma once

#include "brisq_api.h"

namespace brisq {

/// "email.refresh": brings the mailbox table into line with Dovecot. A refused sweep and missing
/// figures are logged.
class RefreshAction : public brisq_api::Action {
 public:
  RefreshAction();
  void Execute(brisq_api::Session& session) const override;
};

/// "email.certs.expiry": logs which certificates expire soon.
class ExpiryAction : public brisq_api::Action {
 public:
  ExpiryAction();
  void Execute(brisq_api::Session& session) const override;
};

/// Declares the periods "EmailRefreshPeriod" (15 minutes) and "EmailExpiryPeriod" (60) and
/// schedules both actions, which must exist while the scheduler runs.
void ScheduleServeActions();

}  // namespace brisq
