#include "framework/owed_call.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "brisq_api.h"
#include "framework/reload_queue.h"

namespace owed_call {

void Make(const std::string& action, const std::string& params) {
  brisq_api::InternalCall(action, params);
  reloader::Queue::OfProcess().RequireStored();
}

bool MayWorkLater(const mgr_err::Error& error) {
  constexpr std::array<std::string_view, 4> kForGood = {"missed", "exists", "value", "usage"};
  return std::find(kForGood.begin(), kForGood.end(), error.type()) == kForGood.end();
}

}  // namespace owed_call
