#include "panel/utc_time.h"

namespace brisq_panel {

std::string UtcText(std::time_t time) {
  std::tm parts{};
  ::gmtime_r(&time, &parts);
  char text[32];
  const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return std::string(text, length);
}

std::string UtcNow() { return UtcText(std::time(nullptr)); }

}  // namespace brisq_panel
