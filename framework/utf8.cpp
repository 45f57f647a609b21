#include "framework/utf8.h"

namespace utf8 {

namespace {

unsigned char ByteAt(std::string_view text, std::size_t index) {
  return static_cast<unsigned char>(text[index]);
}

std::size_t LengthByFirstByte(unsigned char first) {
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

bool IsCharacter(char32_t code, std::size_t length) {
  const bool surrogate = code >= 0xD800 && code < 0xE000;
  return code >= kSmallest[length] && code <= 0x10FFFF && !surrogate;
}

}  // namespace

Character FirstCharacter(std::string_view text) {
  const std::size_t length = text.empty() ? 0 : LengthByFirstByte(ByteAt(text, 0));
  if (length == 0 || length > text.size()) {
    return {};
  }
  char32_t code = length == 1 ? ByteAt(text, 0) : ByteAt(text, 0) & (0x7Fu >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((ByteAt(text, i) & 0xC0) != 0x80) {
      return {};
    }
    code = (code << 6) | (ByteAt(text, i) & 0x3Fu);
  }
  return IsCharacter(code, length) ? Character{code, length} : Character{};
}

}  // namespace utf8
