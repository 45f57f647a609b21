#include "framework/number.h"

#include <charconv>
#include <cmath>
#include <system_error>

std::optional<double> ReadNumber(const std::string& text) {
  double number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || rest != end || !std::isfinite(number)) {
    return std::nullopt;
  }
  return number;
}
