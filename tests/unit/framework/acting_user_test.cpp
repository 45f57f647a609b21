#include "framework/acting_user.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

namespace {

TEST(ActingUser, NamesTheUserOfTheProcess) {
  const passwd* own = ::getpwuid(::getuid());
  const std::string name = own == nullptr ? std::to_string(::getuid()) : own->pw_name;
  const std::string who = ActingUser();
  EXPECT_TRUE(who == name || who.ends_with(" as " + name)) << who;
}

}  // namespace
