#include "panel/hash_mask.h"

#include <algorithm>
#include <cstddef>

#include "str.h"

namespace brisq_panel {

namespace {

constexpr const char* kMask = "***";

bool IsOfScheme(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '.';
}

bool EndsHash(char c) { return static_cast<unsigned char>(c) <= ' '; }

// Behind the scheme in braces that begins at `open`; 0 when none does.
std::size_t BehindScheme(const std::string& text, std::size_t open) {
  std::size_t at = open + 1;
  while (at < text.size() && IsOfScheme(text[at])) {
    ++at;
  }
  return at > open + 1 && at < text.size() && text[at] == '}' ? at + 1 : 0;
}

bool IsOneMask(const std::string& text) {
  return text.starts_with('{') && text.find('}') + 1 == text.size() - 3 && text.ends_with(kMask);
}

}  // namespace

std::string WithoutHashes(const std::string& text) {
  std::string masked;
  std::size_t at = 0;
  while (at < text.size()) {
    const std::size_t from = text[at] == '{' ? BehindScheme(text, at) : 0;
    if (from == 0) {
      masked += text[at++];
      continue;
    }
    masked.append(text, at, from - at);
    const auto end =
        std::find_if(text.begin() + static_cast<std::ptrdiff_t>(from), text.end(), EndsHash);
    at = static_cast<std::size_t>(end - text.begin());
    masked += at > from ? kMask : "";
  }
  return masked;
}

std::string FailureOfTool(const std::string& printed) {
  std::string text = WithoutHashes(printed);
  return IsOneMask(str::Trim(text)) ? "failed, and printed a hash all the same" : text;
}

}  // namespace brisq_panel
