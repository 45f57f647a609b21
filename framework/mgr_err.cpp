#include "mgr_err.h"

#include <utility>

namespace mgr_err {

namespace {

std::string Joined(std::string text, const std::string& part) {
  if (part.empty()) {
    return text;
  }
  return text.empty() ? part : text + ": " + part;
}

// What follows a NUL would be lost to all who take the text as what() gives it.
std::string WithoutNul(std::string text) {
  for (std::size_t at = 0; (at = text.find('\0', at)) != std::string::npos;) {
    text.replace(at, 1, "\\x00");
  }
  return text;
}

}  // namespace

Error::Error(std::string type, std::string object, std::string value)
    : type_(std::move(type)),
      object_(std::move(object)),
      value_(std::move(value)),
      text_(WithoutNul(Joined(Joined(type_, object_), value_))) {}

Error::Error(const Error&) = default;
Error& Error::operator=(const Error&) = default;
Error::~Error() = default;

Error& Error::set_report() noexcept {
  report_ = true;
  return *this;
}

}  // namespace mgr_err
