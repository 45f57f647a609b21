#include "framework/conf_line.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(ConfLine, ColumnsArePartedAndTheLastTakesTheRest) {
  const struct {
    const char* name;
    const char* text;
    unsigned long column;
    const char* value;
  } cases[] = {
      {"first", "a:b:c", 1, "a"},
      {"middle", "a:b:c", 2, "b"},
      {"last", "a:b:c", 3, "c"},
      {"last with separators", "a:b:c:d: e:", 3, "c:d: e:"},
      {"empty in the middle", "a::c", 2, ""},
      {"empty at the end", "a:b:", 3, ""},
      {"short", "a", 2, ""},
      {"empty", "", 1, ""},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    EXPECT_EQ(conf_line::Column(test.text, ':', 3, test.column), test.value);
  }
}

TEST(ConfLine, ReplacedColumnsLeaveTheOthersAsTheyWere) {
  const std::string text = "a: b::d:e:f ";
  EXPECT_EQ(conf_line::WithColumns(text, ':', 4, {}), text);
  EXPECT_EQ(conf_line::WithColumns(text, ':', 4, {{1, "A"}}), "A: b::d:e:f ");
  EXPECT_EQ(conf_line::WithColumns(text, ':', 4, {{2, ""}, {4, "x:y"}}), "a:::x:y");
}

TEST(ConfLine, TheEndOfALineIsToldFromItsText) {
  const struct {
    const char* name;
    std::string raw;
    std::size_t end;
  } cases[] = {
      {"line feed", "a\n", 1}, {"both", "a\r\n", 2},  {"none", "a", 0},
      {"empty", "", 0},        {"cut off", "a\r", 1}, {"only an end", "\r\n", 2},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    EXPECT_EQ(conf_line::EndLength(test.raw), test.end);
  }
}

TEST(ConfLine, AnEndIsAddedWithoutTakingFromTheText) {
  EXPECT_EQ(conf_line::WithEnd("a", "\n"), "a\n");
  EXPECT_EQ(conf_line::WithEnd("a", "\r\n"), "a\r\n");
  EXPECT_EQ(conf_line::WithEnd("a\r\n", "\n"), "a\r\n");
  EXPECT_EQ(conf_line::WithEnd("a\r\r", "\n"), "a\r\r\n");
}

TEST(ConfLine, CountsColumnsUpToTheNumberWanted) {
  EXPECT_TRUE(conf_line::HasColumns("a:b:c", ':', 3));
  EXPECT_TRUE(conf_line::HasColumns("a:b:c:d", ':', 3));
  EXPECT_TRUE(conf_line::HasColumns("", ':', 1));
  EXPECT_FALSE(conf_line::HasColumns("a:b", ':', 3));
}

}  // namespace
