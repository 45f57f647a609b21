#include "brisq/on_off.h"

#include "mgr_err.h"

namespace brisq {

std::optional<bool> OnOff(const Call& call, const std::string& option) {
  if (!call.arguments.Has(option)) return std::nullopt;
  const std::string text = call.arguments.Text(option);
  if (text != "on" && text != "off") throw mgr_err::Error("value", option, "must be on or off");
  return text == "on";
}

}  // namespace brisq
