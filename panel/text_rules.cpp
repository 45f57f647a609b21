#include "panel/text_rules.h"

#include <cstdint>

namespace brisq_panel {

namespace {

constexpr char32_t kInvalid = 0xFFFFFFFF;

constexpr std::size_t SequenceLength(unsigned char first) {
  if (first < 0x80) {
    return 1;
  }
  if (first >= 0xC2 && first < 0xE0) {
    return 2;
  }
  if (first >= 0xE0 && first < 0xF0) {
    return 3;
  }
  return first >= 0xF0 && first < 0xF5 ? 4 : 0;
}

// Smallest character that needs a sequence of this length: a longer form of a smaller one is none.
constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};

constexpr bool IsCharacter(char32_t c, std::size_t length) {
  const bool surrogate = c >= 0xD800 && c < 0xE000;
  return c >= kSmallest[length] && c <= 0x10FFFF && !surrogate;
}

// Takes the first character off the text.
char32_t NextCharacter(std::string_view& text) {
  const auto first = static_cast<unsigned char>(text.front());
  const std::size_t length = SequenceLength(first);
  if (length == 0 || text.size() < length) {
    return kInvalid;
  }
  char32_t c = length == 1 ? first : first & (0x7Fu >> length);
  for (std::size_t i = 1; i < length; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if ((byte & 0xC0) != 0x80) {
      return kInvalid;
    }
    c = c << 6 | (byte & 0x3Fu);
  }
  text.remove_prefix(length);
  return IsCharacter(c, length) ? c : kInvalid;
}

constexpr bool IsInvisible(char32_t c) {
  return c == 0xAD || c == 0x34F || (c >= 0x180B && c <= 0x180F) || c == 0x200B ||
         (c >= 0x2060 && c <= 0x206F) || (c >= 0xFE00 && c <= 0xFE0F) || c == 0xFEFF ||
         (c >= 0xE0000 && c <= 0xE0FFF);
}

constexpr bool IsControl(char32_t c) { return c < 0x20 || (c >= 0x7F && c < 0xA0); }

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
    if (IsControl(c)) {
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
