#include "brisq/given_password.h"

#include <gtest/gtest.h>

#include "mgr_err.h"

namespace brisq {
namespace {

TEST(GivenPassword, IsAskedForAtOnceAndOnce) {
  int asked = 0;
  const GivenPassword given([&] { return "secret" + std::to_string(++asked); });
  EXPECT_EQ(1, asked);
  EXPECT_EQ("secret1", given.Text());
  ASSERT_NE(nullptr, given.IfAny());
  EXPECT_EQ("secret1", *given.IfAny());
  EXPECT_EQ(1, asked);
}

TEST(GivenPassword, WhyThereIsNoneIsToldToWhoUsesIt) {
  const GivenPassword given(
      []() -> std::string { throw mgr_err::Error("value", "password", "must not be empty"); });
  EXPECT_EQ(nullptr, given.IfAny());
  for (int time = 0; time < 2; ++time) {
    try {
      given.Text();
      FAIL() << "told nothing";
    } catch (const mgr_err::Error& error) {
      EXPECT_STREQ("value: password: must not be empty", error.what());
    }
  }
}

}  // namespace
}  // namespace brisq
