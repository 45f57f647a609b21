#include "framework/log_escape.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

using mgr_log::Escaped;

TEST(LogEscape, EachByteAloneIsPrintableOrEscaped) {
  for (int byte = 0; byte < 256; ++byte) {
    char hexadecimal[5];
    std::snprintf(hexadecimal, sizeof hexadecimal, "\\x%02x", static_cast<unsigned>(byte));
    std::string expected = hexadecimal;
    if (byte == '\n' || byte == '\r' || byte == '\t') {
      expected = byte == '\n' ? "\\n" : byte == '\r' ? "\\r" : "\\t";
    } else if (byte == '\\') {
      expected = "\\\\";
    } else if (byte >= 0x20 && byte < 0x7f) {
      expected = std::string(1, static_cast<char>(byte));
    }
    EXPECT_EQ("a" + expected + "b", Escaped("a" + std::string(1, static_cast<char>(byte)) + "b"));
  }
}

TEST(LogEscape, TextStaysAndHarmfulCharactersAreEscaped) {
  struct Case {
    const char* name;
    std::string text;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"nothing", "", ""},
      {"plain", "doveadm call failed: 75", "doveadm call failed: 75"},
      {"two bytes", "M\xc3\xbcller", "M\xc3\xbcller"},
      {"three bytes", "\xe2\x82\xac", "\xe2\x82\xac"},
      {"four bytes", "\xf0\x9f\x93\xac", "\xf0\x9f\x93\xac"},
      {"first of two bytes", "\xc2\xa0", "\xc2\xa0"},
      {"last of all", "\xf4\x8f\xbf\xbf", "\xf4\x8f\xbf\xbf"},
      {"second line", "a\nerror email: forged", "a\\nerror email: forged"},
      {"written as escaped", "a\\nb", "a\\\\nb"},
      {"terminal sequence", "\x1b[31mred", "\\x1b[31mred"},
      {"one-character terminal sequence",
       "\xc2\x9b"
       "31m",
       "\\xc2\\x9b31m"},
      {"next line", "\xc2\x85", "\\xc2\\x85"},
      {"line separator", "\xe2\x80\xa8", "\\xe2\\x80\\xa8"},
      {"paragraph separator", "\xe2\x80\xa9", "\\xe2\\x80\\xa9"},
      {"turned direction", "\xe2\x80\xae", "\\xe2\\x80\\xae"},
      {"isolated direction", "\xe2\x81\xa6", "\\xe2\\x81\\xa6"},
      {"mark of a script", "\xd8\x9c", "\\xd8\\x9c"},
      {"dashes stay", "\xe2\x80\x93", "\xe2\x80\x93"},
      {"second byte alone", "\x80", "\\x80"},
      {"cut at the end", "a\xe2\x82", "a\\xe2\\x82"},
      {"cut in the middle", "\xe2\x82z", "\\xe2\\x82z"},
      {"two bytes for one of ASCII", "\xc1\x81", "\\xc1\\x81"},
      {"three bytes for one of ASCII", "\xe0\x81\x81", "\\xe0\\x81\\x81"},
      {"four bytes for one of ASCII", "\xf0\x80\x81\x81", "\\xf0\\x80\\x81\\x81"},
      {"half of a pair", "\xed\xa0\x80", "\\xed\\xa0\\x80"},
      {"above the last", "\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},
      {"byte that is in no character", "\xff", "\\xff"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.expected, Escaped(c.text));
  }
}

// The inverse, for texts of which every byte outside of ASCII was escaped or kept.
std::string Unescaped(const std::string& text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      result += text[i];
      continue;
    }
    switch (text.at(++i)) {
      case 'n':
        result += '\n';
        break;
      case 'r':
        result += '\r';
        break;
      case 't':
        result += '\t';
        break;
      case 'x':
        result += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
        i += 2;
        break;
      default:
        result += '\\';
    }
  }
  return result;
}

TEST(LogEscape, OriginalCanBeToldFromTheResult) {
  std::mt19937 engine(7);
  std::uniform_int_distribution<int> byte(0, 255);
  for (int round = 0; round < 5000; ++round) {
    std::string text;
    for (int i = 0; i < 20; ++i) {
      text += static_cast<char>(byte(engine));
    }
    const std::string escaped = Escaped(text);
    ASSERT_EQ(text, Unescaped(escaped));
    ASSERT_EQ(std::string::npos, escaped.find_first_of(std::string("\n\r\0\x1b", 4)));
  }
}

TEST(LogEscape, ABackslashStaysWhereThatIsAskedFor) {
  EXPECT_EQ("C:\\x\\n", Escaped("C:\\x\n", mgr_log::Backslash::kKept));
}

}  // namespace
