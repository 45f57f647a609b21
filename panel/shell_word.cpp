#include "panel/shell_word.h"

#include <algorithm>

#include "panel/text_rules.h"

namespace brisq_panel {

namespace {

bool IsPlain(char c) {
  return IsLower(c) || IsUpper(c) || IsDigit(c) ||
         std::string_view("/._-+@%").find(c) != std::string_view::npos;
}

}  // namespace

std::string ShellWord(std::string_view text) {
  if (!text.empty() && std::all_of(text.begin(), text.end(), IsPlain)) {
    return std::string(text);
  }
  std::string word = "'";
  for (const char c : text) {
    word += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  return word + "'";
}

}  // namespace brisq_panel
