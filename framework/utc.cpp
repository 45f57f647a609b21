#include "framework/utc.h"

#include <array>

#include "mgr_err.h"

namespace {

constexpr const char* kForm = "%Y-%m-%dT%H:%M:%SZ";

}  // namespace

std::string UtcText(std::time_t time) {
  std::tm parts{};
  ::gmtime_r(&time, &parts);
  std::array<char, 32> text{};
  return {text.data(), std::strftime(text.data(), text.size(), kForm, &parts)};
}

std::string UtcText(std::chrono::system_clock::time_point time) {
  return UtcText(std::chrono::system_clock::to_time_t(time));
}

std::string UtcNow() { return UtcText(std::time(nullptr)); }

std::time_t UtcTime(const std::string& text) {
  std::tm parts{};
  const char* end = ::strptime(text.c_str(), kForm, &parts);
  if (end == nullptr || *end != '\0') {
    throw mgr_err::Error("internal", "time", "is no time in UTC");
  }
  return ::timegm(&parts);
}
