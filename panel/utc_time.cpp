#include "panel/utc_time.h"

#include "mgr_err.h"

namespace brisq_panel {

std::string UtcText(std::time_t time) {
  std::tm parts{};
  ::gmtime_r(&time, &parts);
  char text[32];
  const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return std::string(text, length);
}

std::string UtcNow() { return UtcText(std::time(nullptr)); }

std::time_t UtcTime(const std::string& text) {
  std::tm parts{};
  const char* end = ::strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts);
  if (end == nullptr || *end != '\0') {
    throw mgr_err::Error("internal", "time", "is no time in UTC");
  }
  return ::timegm(&parts);
}

}  // namespace brisq_panel
