#include "mgr_err.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

TEST(MgrErr, TextHoldsThePartsThatAreThere) {
  struct Case {
    const char* name;
    mgr_err::Error error;
    const char* text;
  };
  const std::vector<Case> cases = {
      {"all three", mgr_err::Error("value", "quota", "too large"), "value: quota: too large"},
      {"no value", mgr_err::Error("missed", "mailbox"), "missed: mailbox"},
      {"type only", mgr_err::Error("internal"), "internal"},
      {"no object", mgr_err::Error("db", "", "busy"), "db: busy"},
      {"no type", mgr_err::Error("", "quota", "too large"), "quota: too large"},
      {"value only", mgr_err::Error("", "", "too large"), "too large"},
      {"nothing", mgr_err::Error(""), ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_STREQ(c.text, c.error.what());
  }
}

TEST(MgrErr, ANulDoesNotEndTheText) {
  using std::string_literals::operator""s;
  const mgr_err::Error error("email", "a\0b"s, "\0no answer\0"s);
  EXPECT_STREQ("email: a\\x00b: \\x00no answer\\x00", error.what());
  EXPECT_EQ("\0no answer\0"s, error.value());
}

TEST(MgrErr, PartsAreKeptAsGiven) {
  const mgr_err::Error error("file", "/etc/x: y", "open: denied");

  EXPECT_EQ("file", error.type());
  EXPECT_EQ("/etc/x: y", error.object());
  EXPECT_EQ("open: denied", error.value());
}

TEST(MgrErr, IsForTheUserOnlyWhenMarked) {
  mgr_err::Error error("email", "doveadm", "failed");
  EXPECT_FALSE(error.report());

  EXPECT_EQ(&error, &error.set_report());

  EXPECT_TRUE(error.report());
}

TEST(MgrErr, CopyHasItsOwnTextAndMark) {
  mgr_err::Error original("value", "home", "not absolute");
  original.set_report();
  const mgr_err::Error copy(original);
  mgr_err::Error assigned("internal");
  assigned = original;

  original = mgr_err::Error("db");

  EXPECT_STREQ("value: home: not absolute", copy.what());
  EXPECT_STREQ("value: home: not absolute", assigned.what());
  EXPECT_TRUE(copy.report());
  EXPECT_TRUE(assigned.report());
  EXPECT_FALSE(original.report());
}

TEST(MgrErr, IsCaughtAsStandardException) {
  try {
    throw mgr_err::Error("limit", "mailboxes", "at most 5");
  } catch (const std::exception& error) {
    EXPECT_STREQ("limit: mailboxes: at most 5", error.what());
  }
}

}  // namespace
