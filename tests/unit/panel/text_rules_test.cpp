#include "panel/text_rules.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

std::string RuleOf(const std::function<void()>& check) {
  try {
    check();
  } catch (const mgr_err::Error& error) {
    return error.what();
  }
  return "accepted";
}

std::string Encoded(char32_t c) {
  const auto byte = [](char32_t bits) { return static_cast<char>(bits); };
  if (c < 0x80) {
    return {byte(c)};
  }
  if (c < 0x800) {
    return {byte(0xC0 | c >> 6), byte(0x80 | (c & 0x3F))};
  }
  if (c < 0x10000) {
    return {byte(0xE0 | c >> 12), byte(0x80 | (c >> 6 & 0x3F)), byte(0x80 | (c & 0x3F))};
  }
  return {byte(0xF0 | c >> 18), byte(0x80 | (c >> 12 & 0x3F)), byte(0x80 | (c >> 6 & 0x3F)),
          byte(0x80 | (c & 0x3F))};
}

// Every code point, encoded as it should be.
TEST(TextRules, ControlCharactersAndSurrogatesAreTheOnlyRefusedCharacters) {
  for (char32_t c = 0; c <= 0x10FFFF; ++c) {
    const bool control = c < 0x20 || (c >= 0x7F && c < 0xA0);
    const bool surrogate = c >= 0xD800 && c < 0xE000;
    const std::string rule = RuleOf([&] { brisq_panel::RefuseControl("x", Encoded(c)); });
    ASSERT_EQ(control || surrogate, rule != "accepted") << std::hex << static_cast<unsigned>(c);
  }
}

// Every sequence of two bytes that does not begin with a control character, which is found first:
// an independent statement of which ones are valid.
TEST(TextRules, PairsOfBytesAreValidAsUtf8Says) {
  for (int first = 0x20; first < 256; ++first) {
    for (int second = first == 0x7F ? 256 : 0; second < 256; ++second) {
      const std::string text = {static_cast<char>(first), static_cast<char>(second)};
      const bool plain = first < 0x80 && second < 0x80;
      const bool pair = first >= 0xC2 && first < 0xE0 && second >= 0x80 && second < 0xC0;
      const std::string rule = RuleOf([&] { brisq_panel::RefuseControl("x", text); });
      ASSERT_EQ(plain || pair, rule != "value: x: not valid UTF-8") << first << " " << second;
    }
  }
}

TEST(TextRules, TheFirstForbiddenCharacterIsNamed) {
  EXPECT_EQ("value: home: '%' not allowed",
            RuleOf([] { brisq_panel::RefuseAnyOf("home", "a%b:c", ":%"); }));
  EXPECT_EQ("accepted", RuleOf([] { brisq_panel::RefuseAnyOf("home", "abc", ":%"); }));
}

TEST(TextRules, LengthsAreCountedInBytes) {
  EXPECT_EQ("accepted", RuleOf([] { brisq_panel::RefuseLonger("x", "\xc3\xbc", 2); }));
  EXPECT_EQ("value: x: too long (max 1 bytes)",
            RuleOf([] { brisq_panel::RefuseLonger("x", "\xc3\xbc", 1); }));
  EXPECT_EQ("value: x: must not be empty", RuleOf([] { brisq_panel::RefuseEmpty("x", ""); }));
  EXPECT_EQ("accepted", RuleOf([] { brisq_panel::RefuseEmpty("x", " "); }));
}

TEST(TextRules, LowerCaseIsThatOfAscii) {
  for (int c = 0; c < 256; ++c) {
    const char given = static_cast<char>(c);
    const char expected = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : given;
    EXPECT_EQ(expected, brisq_panel::ToLower(given));
  }
}

TEST(TextRules, CharactersThatAreNotSeenAreRefused) {
  for (const char* text :
       {"a\xc2\xad", "\xe2\x80\x8b", "a\xe2\x81\xa0z", "\xef\xbb\xbf", "\xef\xb8\x8f"}) {
    SCOPED_TRACE(testing::PrintToString(text));
    EXPECT_EQ("value: x: invisible character not allowed",
              RuleOf([text] { brisq_panel::RefuseInvisible("x", text); }));
  }
  EXPECT_EQ("accepted",
            RuleOf([] { brisq_panel::RefuseInvisible("x", "a \xc3\xbc\xe4\xbe\x8b"); }));
}

}  // namespace
