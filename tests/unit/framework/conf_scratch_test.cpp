#include "framework/conf_scratch.h"

#include <gtest/gtest.h>

namespace {

TEST(ConfScratchTest, WhatWasNeverSavedHereIsNotThere) {
  EXPECT_FALSE(ConfScratch().Find("/etc/users"));
}

TEST(ConfScratchTest, EachPathKeepsItsLatestContent) {
  ConfScratch scratch;
  scratch.Keep("/etc/users", "first");
  scratch.Keep("/etc/others", "other");
  scratch.Keep("/etc/users", "later");
  EXPECT_EQ("later", scratch.Find("/etc/users")->bytes->View());
  EXPECT_EQ("other", scratch.Find("/etc/others")->bytes->View());
}

// Content of equal length must not be taken for what was there before.
TEST(ConfScratchTest, EverySaveIsKnownByAStampOfItsOwn) {
  ConfScratch scratch;
  const ConfStamp first = scratch.Keep("/etc/users", "a");
  const ConfStamp second = scratch.Keep("/etc/users", "b");
  EXPECT_TRUE(first.exists);
  EXPECT_FALSE(first == second);
  EXPECT_TRUE(second == scratch.Find("/etc/users")->stamp);
}

}  // namespace
