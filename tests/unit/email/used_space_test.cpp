#include "email/used_space.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using brisqpriv_email_dovecot::EnterUsedSpace;
using brisqpriv_email_dovecot::UsedSpace;

TEST(UsedSpace, EntersMegabytesByName) {
  struct Case {
    const char* name;
    const char* rows;
    UsedSpace expected;
  };
  const Case cases[] = {
      {"no rows", "", {}},
      {"one row", "ann@x.org 2048\n", {{"ann@x.org", 2}}},
      {"a row without an end", "ann@x.org 2048", {{"ann@x.org", 2}}},
      {"kilobytes short of a megabyte",
       "a@x 1023\nb@x 1024\nc@x 0\n",
       {{"a@x", 0}, {"b@x", 1}, {"c@x", 0}}},
      {"a negative figure, towards zero", "a@x -1023\nb@x -1025\n", {{"a@x", 0}, {"b@x", -1}}},
      {"several rows of one name, the last counts",
       "a@x 1024\nb@x 1024\na@x 4096\n",
       {{"a@x", 4}, {"b@x", 1}}},
      {"names out of order",
       "c@x 1024\na@x 2048\nb@x 3072\n",
       {{"a@x", 2}, {"b@x", 3}, {"c@x", 1}}},
      {"what is no number", "a@x\nb@x error\n", {{"a@x", 0}, {"b@x", 0}}},
      {"blanks before the name and between", "  a@x   2048\n", {{"a@x", 2}}},
      {"an empty row", "a@x 1024\n\nb@x 1024\n", {{"", 0}, {"a@x", 1}, {"b@x", 1}}},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    UsedSpace used;
    EnterUsedSpace(test.rows, used);
    EXPECT_EQ(test.expected, used);
  }
}

TEST(UsedSpace, KeepsWhatNoRowNames) {
  UsedSpace used{{"old@x", 7}, {"ann@x", 1}};
  EnterUsedSpace("ann@x 2048\nnew@x 3072\n", used);
  EXPECT_EQ((UsedSpace{{"ann@x", 2}, {"new@x", 3}, {"old@x", 7}}), used);
}

// With time that grew with the square of the rows this would take minutes.
TEST(UsedSpace, EntersTheRowsOfAHundredThousandMailboxes) {
  constexpr int kRows = 100'000;
  std::string rows;
  for (int row = kRows; row > 0; --row) rows += "u" + std::to_string(row) + "@x 1024\n";
  UsedSpace used;
  EnterUsedSpace(rows, used);
  EXPECT_EQ(kRows, static_cast<int>(used.size()));
}

}  // namespace
