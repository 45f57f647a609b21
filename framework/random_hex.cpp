#include "framework/random_hex.h"

#include <sys/random.h>

#include <array>
#include <cstdint>
#include <cstdio>

#include "mgr_err.h"

std::string RandomHex() {
  std::uint64_t number = 0;
  if (getrandom(&number, sizeof number, 0) != ssize_t{sizeof number}) {
    throw mgr_err::Error("internal", "getrandom", "no random numbers");
  }
  std::array<char, 17> digits{};
  std::snprintf(digits.data(), digits.size(), "%016llx", static_cast<unsigned long long>(number));
  return digits.data();
}
