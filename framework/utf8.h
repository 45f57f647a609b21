#pragma once

#include <cstddef>
#include <string_view>

#include "brisq_export.h"

namespace utf8 {

/// A character and how many bytes it takes; 0 for what is none.
struct Character {
  char32_t code = 0;
  std::size_t length = 0;
};

/// The character that `text` begins with; length 0 when it begins with bytes that are no UTF-8 (of
/// overlong forms, surrogates and what lies beyond U+10FFFF neither), or is empty.
BRISQ_API Character FirstCharacter(std::string_view text);

/// C0, DEL and C1.
constexpr bool IsControl(char32_t c) { return c < 0x20 || (c >= 0x7F && c < 0xA0); }

}  // namespace utf8
