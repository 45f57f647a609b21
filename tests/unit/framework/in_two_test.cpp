#include "framework/in_two.h"

#include <gtest/gtest.h>

#include <latch>
#include <stdexcept>

namespace {

TEST(InTwo, RunsBothAtTheSameTime) {
  std::latch both(2);
  bool first = false;
  bool second = false;
  InTwo(
      [&] {
        both.arrive_and_wait();
        first = true;
      },
      [&] {
        both.arrive_and_wait();
        second = true;
      });
  EXPECT_TRUE(first);
  EXPECT_TRUE(second);
}

TEST(InTwo, EndsTheSecondWhenTheFirstThrows) {
  std::latch thrown(1);
  bool second = false;
  const auto first = [&] {
    thrown.count_down();
    throw std::runtime_error("first");
  };
  EXPECT_THROW(InTwo(first,
                     [&] {
                       thrown.wait();
                       second = true;
                     }),
               std::runtime_error);
  EXPECT_TRUE(second);
}

TEST(InTwo, ThrowsWhatTheSecondThrows) {
  bool first = false;
  EXPECT_THROW(InTwo([&] { first = true; }, [] { throw std::runtime_error("second"); }),
               std::runtime_error);
  EXPECT_TRUE(first);
}

}  // namespace
