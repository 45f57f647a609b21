#include "framework/number.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace {

struct Case {
  const char* name;
  const char* text;
  std::optional<double> number;
};

TEST(ReadNumber, TakesAWholeDecimalNumberAndNothingElse) {
  const Case cases[] = {
      {"whole", "60", 60.0},
      {"zero", "0", 0.0},
      {"fraction", "0.25", 0.25},
      {"negative", "-3", -3.0},
      {"exponent", "1e3", 1000.0},
      {"leading zeros", "007", 7.0},
      {"empty", "", std::nullopt},
      {"word", "abc", std::nullopt},
      {"unit", "10s", std::nullopt},
      {"blank before", " 1", std::nullopt},
      {"blank behind", "1 ", std::nullopt},
      {"plus", "+1", std::nullopt},
      {"comma", "1,5", std::nullopt},
      {"two points", "1.2.3", std::nullopt},
      {"hexadecimal", "0x10", std::nullopt},
      {"infinite", "inf", std::nullopt},
      {"no number", "nan", std::nullopt},
      {"too large", "1e999", std::nullopt},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    EXPECT_EQ(one.number, ReadNumber(one.text));
  }
}

TEST(ReadNumber, StopsAtANulInside) { EXPECT_EQ(std::nullopt, ReadNumber(std::string("1\0", 2))); }

}  // namespace
