#include "tests/soak/figures.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace soak {
namespace {

#ifdef __SANITIZE_THREAD__
constexpr bool kLooksForRaces = true;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
constexpr bool kLooksForRaces = true;
#else
constexpr bool kLooksForRaces = false;
#endif
#else
constexpr bool kLooksForRaces = false;
#endif

bool IsLong() {
  const char* const value = std::getenv("BRISQ_SOAK");
  return value != nullptr && std::string_view(value) == "1";
}

}  // namespace

long Scaled(long long_form, long short_form) {
  if (IsLong()) return long_form;
  return kLooksForRaces ? short_form / 10 : short_form;
}

void Print(const char* what, long figure) {
  const auto* const test = ::testing::UnitTest::GetInstance()->current_test_info();
  std::printf("%s: %s: %ld\n", test->name(), what, figure);
}

}  // namespace soak
