#include "framework/secret_buffer.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace {

using mgr_proc::SecretBuffer;

TEST(SecretBuffer, HoldsWhatWasWrittenByAnyMeans) {
  SecretBuffer buffer;
  std::ostream stream(&buffer);
  std::string expected;
  for (int number = 0; number < 3000; ++number) {
    stream << number << ' ' << std::string("word");
    stream.put('\0');
    expected += std::to_string(number) + " word" + '\0';
  }
  EXPECT_TRUE(stream.flush().good());
  EXPECT_TRUE(expected == buffer.Text());
}

TEST(SecretBuffer, StartsEmpty) { EXPECT_EQ("", SecretBuffer().Text()); }

TEST(SecretBuffer, RefusesWhatComesAfterClose) {
  SecretBuffer buffer;
  std::ostream stream(&buffer);
  stream << "before";
  buffer.Close();
  stream << "after";
  EXPECT_TRUE(stream.bad());
  EXPECT_EQ("before", buffer.Text());
  std::ostream other(&buffer);
  EXPECT_FALSE(other.put('x').good());
}

TEST(SecretBuffer, IsEmptyAfterWipeAndTakesMore) {
  SecretBuffer buffer;
  std::ostream stream(&buffer);
  stream << std::string(5000, 'x');
  buffer.Wipe();
  EXPECT_EQ("", buffer.Text());
  buffer.Wipe();
  stream << "more";
  EXPECT_EQ("more", buffer.Text());
}

}  // namespace
