#include "panel/text_rules.h"

#include <algorithm>

#include "framework/utf8.h"

namespace brisq_panel {

namespace {

constexpr char32_t kInvalid = 0xFFFFFFFF;

// Takes the first character, or a byte that is none, off the text.
char32_t NextCharacter(std::string_view& text) {
  const utf8::Character first = utf8::FirstCharacter(text);
  text.remove_prefix(std::max<std::size_t>(first.length, 1));
  return first.length == 0 ? kInvalid : first.code;
}

constexpr bool IsInvisible(char32_t c) {
  return c == 0xAD || c == 0x34F || (c >= 0x180B && c <= 0x180F) || c == 0x200B ||
         (c >= 0x2060 && c <= 0x206F) || (c >= 0xFE00 && c <= 0xFE0F) || c == 0xFEFF ||
         (c >= 0xE0000 && c <= 0xE0FFF);
}

}  // namespace

mgr_err::Error Refused(const std::string& object, const std::string& rule) {
  return mgr_err::Error("value", object, rule);
}

void RefuseControl(const std::string& object, std::string_view text) {
  while (!text.empty()) {
    const char32_t c = NextCharacter(text);
    if (c == kInvalid) {
      throw Refused(object, "not valid UTF-8");
    }
    if (c == 0) {
      throw Refused(object, "NUL not allowed");
    }
    if (c == '\n' || c == '\r') {
      throw Refused(object, "line break not allowed");
    }
    if (utf8::IsControl(c)) {
      throw Refused(object, "control character not allowed");
    }
  }
}

void RefuseInvisible(const std::string& object, std::string_view text) {
  while (!text.empty()) {
    if (IsInvisible(NextCharacter(text))) {
      throw Refused(object, "invisible character not allowed");
    }
  }
}

void RefuseAnyOf(const std::string& object, std::string_view text, std::string_view forbidden) {
  const std::size_t at = text.find_first_of(forbidden);
  if (at != std::string_view::npos) {
    throw Refused(object, std::string("'") + text[at] + "' not allowed");
  }
}

void RefuseEmpty(const std::string& object, std::string_view text) {
  if (text.empty()) {
    throw Refused(object, "must not be empty");
  }
}

void RefuseLonger(const std::string& object, std::string_view text, std::size_t most) {
  if (text.size() > most) {
    throw Refused(object, "too long (max " + std::to_string(most) + " bytes)");
  }
}

}  // namespace brisq_panel
