#include <chrono>
#include <optional>

#include "email.h"
#include "framework/number.h"
#include "mgr_cf.h"
#include "panel/panel_state.h"
#include "panel/refresh_watch.h"

namespace email::box {

namespace {

using std::chrono::milliseconds;

// By the clock of the day: processes and restarts of the machine share it.
double NowInMs() {
  const auto since_1970 = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<double>(std::chrono::duration_cast<milliseconds>(since_1970).count());
}

bool IsDue(double now) {
  const std::optional<double> last =
      ReadNumber(brisq_panel::KeptValue(brisq_panel::kPasswordRunMs));
  const double delay = ReadNumber(mgr_cf::GetParam("EmailPasswordDelay")).value_or(0);
  return !last || *last > now || now - *last >= delay * 1000;
}

}  // namespace

bool DelayedStart::EmailDelay() {
  const std::lock_guard lock(mutex_);
  const double now = NowInMs();
  if (!IsDue(now)) {
    brisq_panel::RefreshWatch::SawPutOff();
    return false;
  }
  brisq_panel::KeepValue(brisq_panel::kPasswordRunMs,
                         std::to_string(static_cast<std::int64_t>(now)));
  return true;
}

}  // namespace email::box

template class Singleton<email::box::DelayedStart>;
