#include "framework/utf8.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using utf8::FirstCharacter;

// The bytes of a character by the standard's table, whether it may stand in a text or not.
std::string Encoded(char32_t code) {
  const auto byte = [](char32_t bits) { return static_cast<char>(bits); };
  if (code < 0x80) {
    return {byte(code)};
  }
  if (code < 0x800) {
    return {byte(0xC0 | code >> 6), byte(0x80 | (code & 0x3F))};
  }
  if (code < 0x10000) {
    return {byte(0xE0 | code >> 12), byte(0x80 | (code >> 6 & 0x3F)), byte(0x80 | (code & 0x3F))};
  }
  return {byte(0xF0 | code >> 18), byte(0x80 | (code >> 12 & 0x3F)),
          byte(0x80 | (code >> 6 & 0x3F)), byte(0x80 | (code & 0x3F))};
}

TEST(Utf8, EveryCharacterIsReadAsItWasWritten) {
  for (char32_t code = 0; code < 0x120000; ++code) {
    const bool valid = code <= 0x10FFFF && (code < 0xD800 || code >= 0xE000);
    const std::string text = Encoded(code);
    const utf8::Character first = FirstCharacter(text + "x");
    ASSERT_EQ(valid ? text.size() : 0, first.length) << static_cast<unsigned>(code);
    ASSERT_EQ(valid ? code : 0, first.code) << static_cast<unsigned>(code);
  }
}

TEST(Utf8, WhatIsCutOffIsNoCharacter) {
  for (const char32_t code : {U'\u00E9', U'\u20AC', U'\U0001F600'}) {
    const std::string text = Encoded(code);
    for (std::size_t bytes = 0; bytes < text.size(); ++bytes) {
      SCOPED_TRACE(bytes);
      EXPECT_EQ(0U, FirstCharacter(text.substr(0, bytes)).length);
      if (bytes > 0) {
        EXPECT_EQ(0U, FirstCharacter(text.substr(0, bytes) + "xyz").length);
      }
    }
  }
}

TEST(Utf8, WhatIsNoFormOfACharacterIsNone) {
  const struct {
    const char* name;
    std::string text;
  } cases[] = {
      {"a continuation alone", "\x80"},
      {"NUL in two bytes", "\xC0\x80"},
      {"a slash in two bytes", "\xC0\xAF"},
      {"a slash in three bytes", "\xE0\x80\xAF"},
      {"a slash in four bytes", "\xF0\x80\x80\xAF"},
      {"a byte that begins nothing", "\xFF"},
      {"five bytes", "\xF8\x88\x80\x80\x80"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(0U, FirstCharacter(c.text).length);
  }
}

TEST(Utf8, ControlCharactersAreC0DelAndC1) {
  for (char32_t code = 0; code < 0x200; ++code) {
    const bool control = code < 0x20 || code == 0x7F || (code > 0x7F && code < 0xA0);
    EXPECT_EQ(control, utf8::IsControl(code)) << static_cast<unsigned>(code);
  }
}

}  // namespace
