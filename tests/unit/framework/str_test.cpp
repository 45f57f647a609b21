#include "str.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <random>
#include <set>
#include <vector>

namespace {

using Words = std::list<std::string>;

// Bytes of which many are separators and white space, NUL and bytes above 127 among them.
std::string RandomText(std::mt19937& engine) {
  static const std::string kAlphabet("  \t\n\v\f\r::ab\0\x80\xff", 14);
  std::uniform_int_distribution<std::size_t> length(0, 24);
  std::uniform_int_distribution<std::size_t> pick(0, kAlphabet.size() - 1);
  std::string text;
  for (std::size_t left = length(engine); left > 0; --left) {
    text += kAlphabet[pick(engine)];
  }
  return text;
}

bool IsWhite(char c) { return std::string(" \t\n\v\f\r").find(c) != std::string::npos; }

TEST(StrTrim, RemovesWhiteSpaceAtBothEndsOnly) {
  struct Case {
    const char* name;
    std::string text;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"nothing", "", ""},
      {"only white space", " \t\n\v\f\r ", ""},
      {"each kind in front", " \t\n\v\f\ra", "a"},
      {"each kind behind", "a \t\n\v\f\r", "a"},
      {"inner white space stays", "  a \n b ", "a \n b"},
      {"NUL is no white space", std::string("\0 a\0", 4), std::string("\0 a\0", 4)},
      {"no-break space stays", "\xc2\xa0x\xc2\xa0", "\xc2\xa0x\xc2\xa0"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.expected, str::Trim(c.text));
  }
}

TEST(StrTrim, ExactlyTheSixWhiteSpaceBytesAreRemoved) {
  for (int byte = 0; byte < 256; ++byte) {
    SCOPED_TRACE("byte " + std::to_string(byte));
    const std::string text(1, static_cast<char>(byte));
    EXPECT_EQ(IsWhite(text[0]) ? "" : text, str::Trim(text));
  }
}

TEST(StrTrim, ResultIsTheWholeTextBetweenWhiteSpace) {
  std::mt19937 engine(1);
  for (int round = 0; round < 20000; ++round) {
    const std::string text = RandomText(engine);
    const std::string trimmed = str::Trim(text);
    const std::size_t begin = text.find(trimmed);
    ASSERT_NE(std::string::npos, begin);
    ASSERT_TRUE(trimmed.empty() || (!IsWhite(trimmed.front()) && !IsWhite(trimmed.back())));
    for (std::size_t i = 0; i < text.size(); ++i) {
      const bool is_inside = i >= begin && i < begin + trimmed.size();
      ASSERT_TRUE(is_inside || IsWhite(text[i])) << "lost byte " << i;
    }
  }
}

TEST(StrSplit, TakesPiecesThatAreNotEmpty) {
  struct Case {
    const char* name;
    std::string text;
    std::string separator;
    Words expected;
  };
  const std::vector<Case> cases = {
      {"nothing", "", " ", {}},
      {"one piece", "a", " ", {"a"}},
      {"several", "a b c", " ", {"a", "b", "c"}},
      {"two separators in a row", "a  b", " ", {"a", "b"}},
      {"separators at the ends", " a b ", " ", {"a", "b"}},
      {"separators only", "   ", " ", {}},
      {"pieces are trimmed", "a: b\n:\tc", ":", {"a", "b", "c"}},
      {"white space only becomes an empty entry", "a: :b", ":", {"a", "", "b"}},
      {"a line break alone between blanks", "a \n b", " ", {"a", "", "b"}},
      {"a last name before a line feed", "MD5 SHA512\n", " ", {"MD5", "SHA512"}},
      {"names parted by a line break only", "MD5\nSHA512", " ", {"MD5\nSHA512"}},
      {"separator of several characters", "a, b,c", ", ", {"a", "b,c"}},
      {"overlapping separators", "a---b", "--", {"a", "-b"}},
      {"separator longer than the text", "a", "abc", {"a"}},
      {"no separator", " a b ", "", {"a b"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Words words;
    str::Split(c.text, c.separator, words);
    EXPECT_EQ(c.expected, words);
  }
}

TEST(StrSplit, KeepsWhatTheListHeld) {
  Words words = {"before"};
  str::Split("a b", " ", words);
  EXPECT_EQ((Words{"before", "a", "b"}), words);
}

TEST(StrSplit, LosesNothingButSeparatorsAndWhiteSpace) {
  std::mt19937 engine(2);
  for (int round = 0; round < 20000; ++round) {
    const std::string text = RandomText(engine);
    Words words;
    str::Split(text, ":", words);
    std::string solid_text;
    for (const char c : text) {
      solid_text += c == ':' || IsWhite(c) ? "" : std::string(1, c);
    }
    std::string solid_words;
    for (const std::string& word : words) {
      ASSERT_EQ(std::string::npos, word.find(':'));
      ASSERT_EQ(str::Trim(word), word);
      for (const char c : word) {
        solid_words += IsWhite(c) ? "" : std::string(1, c);
      }
    }
    ASSERT_EQ(solid_text, solid_words);
  }
}

TEST(StrGetWord, TakesTheFirstWordOffTheFront) {
  struct Case {
    const char* name;
    std::string text;
    char separator;
    std::string word;
    std::string rest;
  };
  const std::vector<Case> cases = {
      {"nothing", "", ' ', "", ""},
      {"one word", "one", ' ', "one", ""},
      {"two words", "one two", ' ', "one", "two"},
      {"blanks in front are dropped", "   one two", ' ', "one", "two"},
      {"one blank behind is dropped", "one  two", ' ', "one", " two"},
      {"blanks only", "   ", ' ', "", ""},
      {"a tab is no blank", "\tone two", ' ', "\tone", "two"},
      {"a line", "first\nsecond\n", '\n', "first", "second\n"},
      {"the last line", "second\n", '\n', "second", ""},
      {"an empty line is a line", "\nsecond", '\n', "", "second"},
      {"blanks stay with another separator", "  a :b", ':', "  a ", "b"},
      {"no such separator", "a b", ':', "a b", ""},
      {"NUL as separator", std::string("a\0b", 3), '\0', "a", "b"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::string text = c.text;
    EXPECT_EQ(c.word, str::GetWord(text, c.separator));
    EXPECT_EQ(c.rest, text);
  }
}

TEST(StrGetWord, SeparatesAtBlanksByDefault) {
  std::string text = " bob@example.org 2048";
  EXPECT_EQ("bob@example.org", str::GetWord(text));
  EXPECT_EQ("2048", text);
}

TEST(StrGetWord, WordsJoinedByTheSeparatorAreTheText) {
  std::mt19937 engine(3);
  for (int round = 0; round < 20000; ++round) {
    const std::string text = RandomText(engine);
    std::string rest = text;
    std::string joined;
    for (std::size_t step = 0; !rest.empty(); ++step) {
      ASSERT_LE(step, text.size()) << "no progress";
      const std::string before = rest;
      const std::string word = str::GetWord(rest, ':');
      joined += word;
      joined += word.size() + rest.size() < before.size() ? ":" : "";
    }
    ASSERT_EQ(text, joined);
  }
}

TEST(StrRGetWord, TakesTheTextAfterTheLastSeparator) {
  struct Case {
    const char* name;
    std::string text;
    std::string separator;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"nothing", "", "@", ""},
      {"one separator", "bob@example.org", "@", "example.org"},
      {"several", "a@b@c", "@", "c"},
      {"none", "bob", "@", "bob"},
      {"at the end", "bob@", "@", ""},
      {"at the front", "@bob", "@", "bob"},
      {"of several characters", "a::b:c", "::", "b:c"},
      {"overlapping", "a:::b", "::", "b"},
      {"empty", "bob", "", "bob"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.expected, str::RGetWord(c.text, c.separator));
  }
}

TEST(StrStartsWith, ComparesTheFront) {
  EXPECT_TRUE(str::StartsWith("", ""));
  EXPECT_TRUE(str::StartsWith("ssl_cert", ""));
  EXPECT_TRUE(str::StartsWith("ssl_cert", "ssl_"));
  EXPECT_TRUE(str::StartsWith("ssl_", "ssl_"));
  EXPECT_FALSE(str::StartsWith("ssl", "ssl_"));
  EXPECT_FALSE(str::StartsWith(" ssl_", "ssl_"));
  EXPECT_FALSE(str::StartsWith("SSL_", "ssl_"));
  EXPECT_FALSE(str::StartsWith("", "s"));
}

TEST(StrInt, ReadsTheNumberAtTheFront) {
  struct Case {
    const char* name;
    std::string text;
    int expected;
  };
  const std::vector<Case> cases = {
      {"nothing", "", 0},
      {"no number", "error", 0},
      {"zero", "0", 0},
      {"a number", "2048", 2048},
      {"text behind", "500M", 500},
      {"text in front", "M500", 0},
      {"white space in front", " \t\n\v\f\r7", 7},
      {"minus", "-7", -7},
      {"plus", "+7", 7},
      {"sign alone", "-", 0},
      {"plus alone", "+", 0},
      {"two signs", "+-7", 0},
      {"two minus", "--7", 0},
      {"blank behind the sign", "- 7", 0},
      {"leading zeros are decimal", "010", 10},
      {"no hexadecimal", "0x10", 0},
      {"cut at a point", "3.9", 3},
      {"largest", "2147483647", INT_MAX},
      {"one above", "2147483648", INT_MAX},
      {"smallest", "-2147483648", INT_MIN},
      {"one below", "-2147483649", INT_MIN},
      {"far above", "99999999999999999999999", INT_MAX},
      {"far above with a plus", "+99999999999999999999999", INT_MAX},
      {"far below", " -99999999999999999999999", INT_MIN},
      {"NUL ends it", std::string("12\0003", 4), 12},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.expected, str::Int(c.text));
  }
}

TEST(StrStr, IsReadBackByInt) {
  for (const int number : {0, 1, -1, 42, INT_MAX, INT_MIN}) {
    EXPECT_EQ(number, str::Int(str::Str(number)));
  }
  EXPECT_EQ("-9223372036854775808", str::Str(LONG_MIN));
  EXPECT_EQ("9223372036854775807", str::Str(LONG_MAX));
}

TEST(StrRandom, HasTheLengthAskedFor) {
  for (const std::size_t length : {0U, 1U, 4U, 256U, 257U, 100000U}) {
    EXPECT_EQ(length, str::Random(length).size());
  }
}

// Five standard deviations (32 each) on either side: chance alone fails less than one run in 6,000.
TEST(StrRandom, EachByteIsAsLikelyAsAnyOther) {
  constexpr int kPerByte = 1000;
  std::array<int, 256> count{};
  for (const char c : str::Random(256 * kPerByte)) {
    ++count[static_cast<unsigned char>(c)];
  }
  for (std::size_t byte = 0; byte < count.size(); ++byte) {
    EXPECT_NEAR(kPerByte, count[byte], 5 * 32) << "byte " << byte;
  }
}

TEST(StrRandom, DoesNotRepeat) {
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) {
    EXPECT_TRUE(seen.insert(str::Random(16)).second);
  }
}

}  // namespace
