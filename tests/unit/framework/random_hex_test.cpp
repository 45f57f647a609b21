#include "framework/random_hex.h"

#include <gtest/gtest.h>

#include <set>

namespace {

TEST(RandomHex, IsSixteenDigitsAndNeverTheSame) {
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) {
    const std::string digits = RandomHex();
    EXPECT_EQ(16u, digits.size());
    EXPECT_EQ(std::string::npos, digits.find_first_not_of("0123456789abcdef")) << digits;
    seen.insert(digits);
  }
  EXPECT_EQ(1000u, seen.size());
}

}  // namespace
