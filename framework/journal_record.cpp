#include "framework/journal_record.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace journal {

namespace {

constexpr std::size_t kChecksumDigits = 16;

std::string Checksum(std::string_view text) {
  std::uint64_t hash = 14695981039346656037ULL;  // FNV-1a: against torn writes, not against forgery
  for (const char byte : text) {
    hash = (hash ^ static_cast<unsigned char>(byte)) * 1099511628211ULL;
  }
  std::array<char, kChecksumDigits + 1> digits{};
  std::snprintf(digits.data(), digits.size(), "%016llx", static_cast<unsigned long long>(hash));
  return digits.data();
}

bool Plain(char byte) { return byte > ' ' && byte < 0x7f && byte != '%' && byte != '='; }

std::string Escaped(const std::string& value) {
  std::string escaped;
  for (const char byte : value) {
    if (Plain(byte)) {
      escaped += byte;
      continue;
    }
    std::array<char, 4> code{};
    std::snprintf(code.data(), code.size(), "%%%02x", static_cast<unsigned char>(byte));
    escaped += code.data();
  }
  return escaped;
}

std::string Unescaped(std::string_view text) {
  std::string value;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '%' || at + 2 >= text.size()) {
      value += text[at];
      continue;
    }
    const std::string code(text.substr(at + 1, 2));
    value += static_cast<char>(std::strtol(code.c_str(), nullptr, 16));
    at += 2;
  }
  return value;
}

bool IsWhole(std::string_view record) {
  return record.size() > kChecksumDigits && record[kChecksumDigits] == ' ' &&
         record.substr(0, kChecksumDigits) == Checksum(record.substr(kChecksumDigits + 1));
}

// Takes the text up to `end` off the front, `end` with it.
std::string_view TakeUpTo(std::string_view& text, char end) {
  const std::string_view word = text.substr(0, text.find(end));
  text.remove_prefix(std::min(word.size() + 1, text.size()));
  return word;
}

}  // namespace

const std::string& Step::Value(const std::string& name) const {
  static const std::string none;
  const auto found = values.find(name);
  return found == values.end() ? none : found->second;
}

std::string Text(const Step& step) {
  std::string text = step.kind;
  for (const auto& [name, value] : step.values) {
    text += " " + name + "=" + Escaped(value);
  }
  return text;
}

Step FromText(std::string_view text) {
  Step step{std::string(TakeUpTo(text, ' ')), {}};
  while (!text.empty()) {
    std::string_view pair = TakeUpTo(text, ' ');
    const std::string name(TakeUpTo(pair, '='));
    step.values[name] = Unescaped(pair);
  }
  return step;
}

std::string Record(const Step& step) {
  const std::string text = Text(step);
  return Checksum(text) + " " + text + "\n";
}

std::vector<Step> FromRecords(std::string_view content) {
  content = content.substr(0, WholeLength(content));
  std::vector<Step> steps;
  while (!content.empty()) {
    steps.push_back(FromText(TakeUpTo(content, '\n').substr(kChecksumDigits + 1)));
  }
  return steps;
}

std::size_t WholeLength(std::string_view content) {
  std::string_view rest = content;
  while (rest.find('\n') != std::string_view::npos) {
    const std::size_t behind = rest.size();
    if (!IsWhole(TakeUpTo(rest, '\n'))) {
      return content.size() - behind;
    }
  }
  return content.size() - rest.size();
}

}  // namespace journal
