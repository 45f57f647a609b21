#include "framework/conf_texts.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

TEST(ConfTexts, ATextIsKeptWithItsEnd) {
  const struct {
    const char* name;
    std::string text;
    std::string end;
  } cases[] = {
      {"nothing", "", ""},
      {"no end", "a:1", ""},
      {"an end", "a:1", "\n"},
      {"an end alone", "", "\r\n"},
      {"a NUL", std::string("a\0b", 3), "\n"},
      {"larger than any block", std::string(std::size_t{1} << 20, 'x'), "\n"},
  };
  ConfTexts texts;
  std::size_t size = 0;
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    EXPECT_EQ(texts.Keep(test.text, test.end), test.text + test.end);
    size += test.text.size() + test.end.size();
    EXPECT_EQ(texts.size(), size);
  }
}

TEST(ConfTexts, TextsStayWhereTheyAreWhileOthersCome) {
  ConfTexts texts;
  std::vector<std::pair<std::string, std::string_view>> kept;
  for (std::size_t number = 0; number < 5000; ++number) {
    const std::string text = std::to_string(number) + std::string(number % 97, 'x');
    kept.emplace_back(text + "\n", texts.Keep(text, "\n"));
  }
  for (const auto& [text, view] : kept) EXPECT_EQ(view, text);
  const ConfTexts moved = std::move(texts);
  EXPECT_EQ(kept.front().second, "0\n");
}

TEST(ConfTexts, ATextThatIsKeptCanBeKeptAgain) {
  ConfTexts texts;
  std::string_view text = texts.Keep("a", "\n");
  for (int time = 0; time < 12; ++time) text = texts.Keep(text, text);
  EXPECT_EQ(text.size(), 2U << 12);
  EXPECT_EQ(text.substr(text.size() - 4), "a\na\n");
}

TEST(ConfTexts, ATextThatIsOverwrittenIsGoneAndTheOthersAreNot) {
  ConfTexts texts;
  const std::string_view first = texts.Keep("one", "\n");
  const std::string_view second = texts.Keep("two", "\n");
  const std::string_view third = texts.Keep("three", "\n");
  ConfTexts::Overwrite(second);
  ConfTexts::Overwrite({});
  EXPECT_EQ(first, "one\n");
  EXPECT_EQ(second, std::string(4, '\0'));
  EXPECT_EQ(third, "three\n");
}

}  // namespace
