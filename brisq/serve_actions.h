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

/// Declares the period "EmailRefreshPeriod" (15 minutes) and schedules the action, which must exist
/// while the scheduler runs.
void ScheduleServeActions();

}  // namespace brisq
