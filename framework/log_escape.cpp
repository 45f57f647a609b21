#include "framework/log_escape.h"

#include "framework/utf8.h"

namespace mgr_log {

namespace {

bool IsHarmful(char32_t code) {
  const bool ends_line = code == 0x2028 || code == 0x2029;
  const bool turns_direction = code == 0x061c || code == 0x200e || code == 0x200f ||
                               (code >= 0x202a && code <= 0x202e) ||
                               (code >= 0x2066 && code <= 0x2069);
  return utf8::IsControl(code) || ends_line || turns_direction;
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
    const utf8::Character first = utf8::FirstCharacter(text);
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
