#include "test.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>

namespace test {

namespace {

// The address in canonical form; empty when `value` is none of the family.
std::string Canonical(int family, const std::string& value) {
  in6_addr address{};  // the larger of the two families'
  char text[INET6_ADDRSTRLEN];
  if (::inet_pton(family, value.c_str(), &address) != 1 ||
      ::inet_ntop(family, &address, text, sizeof text) == nullptr) {
    return {};
  }
  return text;
}

}  // namespace

bool Numeric(std::string& value) {
  return !value.empty() &&
         std::all_of(value.begin(), value.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool Ip(std::string& value) {
  if (value.find('\0') != std::string::npos) {
    return false;  // the system's functions would see the front part only
  }
  const int family = value.find(':') == std::string::npos ? AF_INET : AF_INET6;
  const std::string canonical = Canonical(family, value);
  if (canonical.empty()) {
    return false;
  }
  value = canonical;
  return true;
}

}  // namespace test
