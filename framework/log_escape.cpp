#include "framework/log_escape.h"

#include <cstdint>

namespace mgr_log {

namespace {

// A character and its length in bytes; length 0 when the text does not begin with valid UTF-8.
struct Character {
  std::uint32_t code;
  std::size_t length;
};

unsigned char ByteAt(std::string_view text, std::size_t index) {
  return static_cast<unsigned char>(text[index]);
}

std::size_t LengthByFirstByte(unsigned char first) {
  if (first < 0x80) {
    return 1;
  }
  if (first >= 0xc2 && first < 0xe0) {
    return 2;
  }
  if (first >= 0xe0 && first < 0xf0) {
    return 3;
  }
  return first >= 0xf0 && first < 0xf5 ? 4 : 0;
}

bool IsOverlongOrNoCharacter(std::uint32_t code, std::size_t length) {
  return (length == 3 && code < 0x800) || (length == 4 && (code < 0x10000 || code > 0x10ffff)) ||
         (code >= 0xd800 && code < 0xe000);
}

Character FirstCharacter(std::string_view text) {
  const std::size_t length = LengthByFirstByte(ByteAt(text, 0));
  if (length == 0 || length > text.size()) {
    return {0, 0};
  }
  std::uint32_t code = length == 1 ? ByteAt(text, 0) : ByteAt(text, 0) & (0x7fU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((ByteAt(text, i) & 0xc0) != 0x80) {
      return {0, 0};
    }
    code = (code << 6) | (ByteAt(text, i) & 0x3f);
  }
  return IsOverlongOrNoCharacter(code, length) ? Character{0, 0} : Character{code, length};
}

bool IsHarmful(std::uint32_t code) {
  const bool is_control = code < 0x20 || (code >= 0x7f && code < 0xa0);
  const bool ends_line = code == 0x2028 || code == 0x2029;
  const bool turns_direction = code == 0x061c || code == 0x200e || code == 0x200f ||
                               (code >= 0x202a && code <= 0x202e) ||
                               (code >= 0x2066 && code <= 0x2069);
  return is_control || ends_line || turns_direction;
}

std::string EscapedByte(unsigned char byte) {
  constexpr const char* kDigits = "0123456789abcdef";
  switch (byte) {
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    default:
      return {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
  }
}

void AppendEscaped(std::string_view bytes, std::string& result) {
  for (const char byte : bytes) {
    result += EscapedByte(static_cast<unsigned char>(byte));
  }
}

}  // namespace

std::string Escaped(std::string_view text, Backslash backslash) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const Character first = FirstCharacter(text);
    const std::string_view bytes = text.substr(0, first.length == 0 ? 1 : first.length);
    if (first.length == 0 || IsHarmful(first.code)) {
      AppendEscaped(bytes, result);
    } else {
      result += bytes;
      if (first.code == '\\' && backslash == Backslash::kDoubled) {
        result += '\\';
      }
    }
    text.remove_prefix(bytes.size());
  }
  return result;
}

}  // namespace mgr_log
