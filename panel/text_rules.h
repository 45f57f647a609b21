#pragma once

#include <string>
#include <string_view>

#include "mgr_err.h"

/// Rules that several kinds of input share. Each throws mgr_err::Error "value" with `object` as the
/// object. Any thread.
namespace brisq_panel {

/// The error of a broken rule.
BRISQ_API mgr_err::Error Refused(const std::string& object, const std::string& rule);

/// Refuses control characters: C0, DEL and C1, with words of their own for NUL and line breaks; and
/// what is not valid UTF-8.
BRISQ_API void RefuseControl(const std::string& object, std::string_view text);

/// Refuses each character of `forbidden`, naming it.
BRISQ_API void RefuseAnyOf(const std::string& object, std::string_view text,
                           std::string_view forbidden);

BRISQ_API void RefuseEmpty(const std::string& object, std::string_view text);

/// Refuses a text longer than `most` bytes.
BRISQ_API void RefuseLonger(const std::string& object, std::string_view text, std::size_t most);

/// ASCII only, whatever the locale.
constexpr bool IsLower(char c) { return c >= 'a' && c <= 'z'; }
constexpr bool IsUpper(char c) { return c >= 'A' && c <= 'Z'; }
constexpr bool IsDigit(char c) { return c >= '0' && c <= '9'; }
constexpr char ToLower(char c) { return IsUpper(c) ? static_cast<char>(c - 'A' + 'a') : c; }

/// Refuses characters that are not seen and that names are compared without: soft hyphens, spaces
/// of no width, selectors of variants. `text` is valid UTF-8.
BRISQ_API void RefuseInvisible(const std::string& object, std::string_view text);

}  // namespace brisq_panel
