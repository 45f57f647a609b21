#include <chrono>

#include "email.h"
#include "mgr_cf.h"
#include "str.h"

namespace email::box {

bool DelayedStart::EmailDelay() {
  using std::chrono::milliseconds;
  const auto now =
      std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
          .count();
  const std::int64_t delay_ms =
      std::int64_t{1000} * str::Int(mgr_cf::GetParam("EmailPasswordDelay"));
  const std::lock_guard lock(mutex_);
  if (ran_ && now - last_ms_ < delay_ms) {
    return false;
  }
  ran_ = true;
  last_ms_ = now;
  return true;
}

}  // namespace email::box

template class Singleton<email::box::DelayedStart>;
