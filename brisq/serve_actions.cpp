#include "brisq/serve_actions.h"

#include "mgr_cf.h"
#include "mgr_log.h"
#include "panel/refresh.h"
#include "panel/tls.h"
#include "periodic.h"

namespace brisq {
namespace {

mgr_log::Module log_channel("serve", "dormel");

void Warn(const std::string& text) {
  if (log_channel.Check(mgr_log::kWarning))
    log_channel.Write(mgr_log::kWarning, "%s", text.c_str());
}

}  // namespace

RefreshAction::RefreshAction() : Action("email.refresh", kAdministratorOnly, nullptr) {}

void RefreshAction::Execute(brisq_api::Session&) const {
  const auto report = brisq_panel::Refresh(false);
  for (const std::string& address : report.swept)
    Warn("mailbox " + address + " had no line any more and was archived");
  for (const std::string& line : report.spared)
    Warn("left alone: " + line + "; the panel's mailbox stays");
  if (!report.quota_problem.empty()) Warn("Dovecot reports no used space: " + report.quota_problem);
}

ExpiryAction::ExpiryAction() : Action("email.certs.expiry", kAdministratorOnly, nullptr) {}

void ExpiryAction::Execute(brisq_api::Session&) const {
  for (const std::string& warning : brisq_panel::ExpiryWarnings()) Warn(warning);
}

void ScheduleServeActions() {
  mgr_cf::AddParam("EmailRefreshPeriod", "15");
  mgr_cf::AddParam("EmailExpiryPeriod", "60");
  periodic::RegisterAction("email.refresh", "", "EmailRefreshPeriod");
  periodic::RegisterAction("email.certs.expiry", "", "EmailExpiryPeriod");
}

}  // namespace brisq
