// Text operations lose nothing but what they are meant to drop, and addresses have one canonical
// form.

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "framework/log_escape.h"
#include "str.h"
#include "test.h"

namespace {

void Require(bool condition) {
  if (!condition) {
    std::abort();
  }
}

void CheckWords(const std::string& text, char separator) {
  std::string rest = text;
  std::string joined;
  while (!rest.empty()) {
    const std::size_t before = rest.size();
    joined += str::GetWord(rest, separator);
    Require(rest.size() < before);
    joined += joined.size() + rest.size() < text.size() ? std::string(1, separator) : "";
  }
  Require(separator == ' ' || joined == text);
}

void CheckSplit(const std::string& text, const std::string& separator) {
  std::list<std::string> pieces;
  str::Split(text, separator, pieces);
  for (const std::string& piece : pieces) {
    Require(separator.empty() || piece.find(separator) == std::string::npos);
    Require(piece == str::Trim(piece));
  }
}

void CheckAddress(std::string value) {
  const std::string before = value;
  if (!test::Ip(value)) {
    Require(value == before);
    return;
  }
  const std::string canonical = value;
  Require(test::Ip(value) && value == canonical);
}

void CheckEscaped(const std::string& text) {
  for (const char c : mgr_log::Escaped(text)) {
    Require(static_cast<unsigned char>(c) >= 0x20 && c != 0x7f);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  const char separator = static_cast<char>(data[0]);
  const std::string text(data + 1, data + size);
  CheckWords(text, separator);
  CheckSplit(text, std::string(1, separator));
  CheckSplit(text, text.substr(0, 2));
  CheckAddress(text);
  CheckEscaped(text);
  str::Int(text);
  return 0;
}
