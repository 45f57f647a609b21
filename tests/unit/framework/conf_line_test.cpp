#include "framework/conf_line.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <string_view>

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

// Each special byte at each place of values up to some blocks long, and values without any.
TEST(ConfLine, SpecialBytesAreFoundWhereverTheyAre) {
  for (std::size_t size = 0; size < 70; ++size) {
    const std::string plain(size, 'x');
    EXPECT_FALSE(conf_line::HasSpecial(plain, ':')) << size;
    EXPECT_FALSE(conf_line::HasSpecial(plain + ':', ';')) << size;
    for (const char special : {'\n', '\r', '\0', ':'}) {
      for (std::size_t at = 0; at < size; ++at) {
        std::string value = plain;
        value[at] = special;
        EXPECT_TRUE(conf_line::HasSpecial(value, ':')) << size << " at " << at;
      }
    }
  }
}

TEST(ConfLine, ColumnsOfAFirstLineAreCountedUpToItsEnd) {
  const std::string far(61, 'x');
  const struct {
    const char* name;
    std::string bytes;
    unsigned long columns;
  } cases[] = {
      {"one", "a\n", 1},
      {"none", "", 1},
      {"three", "a:b:c\nd:e:f:g\n", 3},
      {"no end", "a:b:c", 3},
      {"only separators", "::\n:", 3},
      {"separator last of a block", far + "xx:\n:::", 2},
      {"end last of a block", far + "x:\n::::", 2},
      {"end first of a block", far + "xx:" + "\n::::", 2},
      {"many blocks", far + ":" + far + ":" + far + far + ":" + far + "\n::", 4},
      {"a NUL in the tail", std::string("a:\0b:c", 6), 3},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    EXPECT_TRUE(conf_line::BeginsWithColumns(test.bytes, ':', test.columns));
    EXPECT_FALSE(conf_line::BeginsWithColumns(test.bytes, ':', test.columns + 1));
  }
}

// What is behind a short tail is not part of it.
TEST(ConfLine, ANulMayBeTheSeparator) {
  EXPECT_TRUE(conf_line::BeginsWithColumns(std::string("a\0b", 3), '\0', 2));
  EXPECT_FALSE(conf_line::BeginsWithColumns(std::string("a\0b", 3), '\0', 3));
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
  const struct {
    const char* name;
    const char* raw;
    const char* end;
    const char* missing;
  } cases[] = {
      {"no end", "a", "\n", "\n"},
      {"no end, CR LF", "a", "\r\n", "\r\n"},
      {"nothing", "", "\n", "\n"},
      {"has one", "a\n", "\r\n", ""},
      {"has another one", "a\r\n", "\n", ""},
      {"CR without LF", "a\r\r", "\n", "\n"},
      {"CR without LF, CR LF", "a\r", "\r\n", "\n"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    EXPECT_EQ(conf_line::EndFor(test.raw, test.end), test.missing);
    EXPECT_EQ(conf_line::WithEnd(test.raw, test.end), std::string(test.raw) + test.missing);
  }
}

TEST(ConfLine, CountsColumnsOfTextsOfAnyLength) {
  EXPECT_EQ(conf_line::CountColumns("", ':'), 1U);
  EXPECT_EQ(conf_line::CountColumns("a::b", ':'), 3U);
  for (const std::size_t size : {15U, 16U, 17U, 239U, 240U, 241U, 1000U}) {
    EXPECT_EQ(conf_line::CountColumns(std::string(size, ':'), ':'), size + 1) << size;
    EXPECT_EQ(conf_line::CountColumns(std::string(size, 'x') + ':', ':'), 2U) << size;
  }
}

TEST(ConfLine, CountsColumnsUpToTheNumberWanted) {
  EXPECT_TRUE(conf_line::HasColumns("a:b:c", ':', 3));
  EXPECT_TRUE(conf_line::HasColumns("a:b:c:d", ':', 3));
  EXPECT_TRUE(conf_line::HasColumns("", ':', 1));
  EXPECT_FALSE(conf_line::HasColumns("a:b", ':', 3));
}

// Of each column where it is cut, with every length before it, so that every column and end of line
// comes to lie in every place of a block of bytes.
TEST(ConfLine, TheFirstLineIsCutWhereverItsBytesLie) {
  for (std::size_t width = 0; width < 40; ++width) {
    for (const std::string end : {"\n", "\r\n", ""}) {
      SCOPED_TRACE(std::to_string(width) + " bytes, end of " + std::to_string(end.size()));
      const std::string name(width, 'n');
      const std::string line = name + ":\r:c:d\r:" + name + end;
      const std::string bytes = line + (end.empty() ? "" : "next:1:2\n");
      std::array<std::string_view, 3> columns;
      const conf_line::Cut cut = conf_line::CutFirst(bytes, ':', columns);
      EXPECT_EQ(cut.length, line.size());
      EXPECT_EQ(cut.columns, 3U);
      EXPECT_EQ(columns[0], name);
      EXPECT_EQ(columns[1], "\r");
      EXPECT_EQ(columns[2], "c:d\r:" + name);
    }
  }
}

TEST(ConfLine, AShortFirstLineTakesNothingOfTheNext) {
  const struct {
    const char* name;
    std::string bytes;
    std::size_t length;
    std::size_t columns;
    const char* last;
  } cases[] = {
      {"blank", "\na:b:c\n", 1, 1, ""},
      {"blank with CR", "\r\na:b:c\n", 2, 1, ""},
      {"one column", "a\nb:c:d\n", 2, 1, "a"},
      {"two columns", "a:b\r\nc:d:e\n", 5, 2, "b"},
      {"empty column at the end", "a:\nb:c\n", 3, 2, ""},
      {"CR at the end of the file", "a:b\r", 4, 2, "b"},
      {"separators behind", "a\n::::::::::::::::::::", 2, 1, "a"},
      {"NUL", std::string("\0:b\n:\n", 6), 4, 2, "b"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    std::array<std::string_view, 4> columns;
    const conf_line::Cut cut = conf_line::CutFirst(test.bytes, ':', columns);
    EXPECT_EQ(cut.length, test.length);
    ASSERT_EQ(cut.columns, test.columns);
    EXPECT_EQ(columns[test.columns - 1], test.last);
  }
}

// What is behind the last byte is never taken for a part of the line.
TEST(ConfLine, ASeparatorMayBeAnyByte) {
  std::array<std::string_view, 3> columns;
  EXPECT_EQ(conf_line::CutFirst("abc", '\0', columns).columns, 1U);
  EXPECT_EQ(columns[0], "abc");
}

}  // namespace
