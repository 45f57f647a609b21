#include "framework/conf_line.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>

#include "framework/byte_block.h"

namespace conf_line {
namespace {

// Takes the next column off the front of `rest`; the last one takes everything.
std::string_view Take(std::string_view& rest, char separator, bool last) noexcept {
  const std::size_t end = last ? std::string_view::npos : rest.find(separator);
  const std::string_view column = rest.substr(0, end);
  rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
  return column;
}

// Without a way out before the end, and in parts whose count fits a byte, so that the compiler
// makes vector instructions of it: for lines of usual length four times as fast as looking for
// each.
std::size_t CountByte(std::string_view text, char byte) noexcept {
  constexpr std::size_t kPart = 240;
  std::size_t count = 0;
  while (!text.empty()) {
    const std::string_view part = text.substr(0, kPart);
    unsigned char found = 0;
    for (const char each : part) found = static_cast<unsigned char>(found + (each == byte ? 1 : 0));
    count += found;
    text.remove_prefix(part.size());
  }
  return count;
}

// Places of what parts lines and columns in the next bytes, a bit for each; of the separators those
// before the first end of a line.
struct Marks {
  std::uint64_t separators;
  std::uint64_t ends;
};

Marks MarkBlock(const char* at, char separator) noexcept {
  const WideByteBlock block(at);
  const std::uint64_t ends = block.Equal('\n');
  const std::uint64_t before = ends == 0 ? ~std::uint64_t{0} : ends ^ (ends - 1);
  return {block.Equal(separator) & before, ends};
}

Marks MarkTail(std::string_view tail, char separator) noexcept {
  char block[WideByteBlock::kSize] = {};
  tail.copy(block, sizeof block);
  Marks marks = MarkBlock(block, separator);
  // What is behind the tail is no separator, whatever the separator is.
  marks.separators &= (std::uint64_t{1} << tail.size()) - 1;
  return marks;
}

Marks MarkFirst(std::string_view bytes, char separator) noexcept {
  return bytes.size() >= WideByteBlock::kSize ? MarkBlock(bytes.data(), separator)
                                              : MarkTail(bytes, separator);
}

// Parts one line into columns as its bytes go by.
class Cutter {
 public:
  Cutter(const char* begin, std::span<std::string_view> columns) noexcept
      : begin_(begin), columns_(columns) {}

  bool InLast() const noexcept { return count_ + 1 == columns_.size(); }
  void Take(const char* at, Marks marks) noexcept {
    for (; marks.separators != 0 && !InLast(); marks.separators &= marks.separators - 1) {
      EndColumn(at + __builtin_ctzll(marks.separators));
      ++begin_;
    }
  }
  std::size_t EndLine(const char* end) noexcept {
    if (end > begin_ && end[-1] == '\r') --end;
    EndColumn(end);
    return count_;
  }

 private:
  void EndColumn(const char* end) noexcept {
    columns_[count_++] = {begin_, static_cast<std::size_t>(end - begin_)};
    begin_ = end;
  }

  const char* begin_;
  std::span<std::string_view> columns_;
  std::size_t count_ = 0;
};

}  // namespace

Cut CutFirst(std::string_view bytes, char separator, std::span<std::string_view> columns) noexcept {
  const char* const first = bytes.data();
  const char* const last = first + bytes.size();
  Cutter cutter(first, columns);
  const auto end_at = [&](const char* end) {
    const auto length = static_cast<std::size_t>(end - first) + (end == last ? 0 : 1);
    return Cut{length, cutter.EndLine(end)};
  };
  for (const char* at = first; at < last; at += WideByteBlock::kSize) {
    const auto left = static_cast<std::size_t>(last - at);
    const Marks marks =
        left >= WideByteBlock::kSize ? MarkBlock(at, separator) : MarkTail({at, left}, separator);
    cutter.Take(at, marks);
    if (marks.ends != 0) return end_at(at + __builtin_ctzll(marks.ends));
  }
  return end_at(last);
}

std::size_t EndLength(std::string_view raw) noexcept {
  if (raw.ends_with("\r\n")) return 2;
  return raw.ends_with('\n') || raw.ends_with('\r') ? 1 : 0;
}

std::string_view EndFor(std::string_view raw, std::string_view end) noexcept {
  if (raw.ends_with('\n')) return {};
  return raw.ends_with('\r') ? "\n" : end;
}

std::string WithEnd(std::string_view raw, std::string_view end) {
  return std::string(raw).append(EndFor(raw, end));
}

bool HasSpecial(std::string_view value, char separator) noexcept {
  return HasOneOf(value, std::array{'\n', '\r', '\0', separator});
}

unsigned long CountColumns(std::string_view text, char separator) noexcept {
  return CountByte(text, separator) + 1;
}

bool HasColumns(std::string_view text, char separator, unsigned long columns) noexcept {
  return CountColumns(text, separator) >= columns;
}

bool BeginsWithColumns(std::string_view bytes, char separator, unsigned long columns) noexcept {
  unsigned long found = 1;
  Marks marks{0, 0};
  while (!bytes.empty() && found < columns && marks.ends == 0) {
    marks = MarkFirst(bytes, separator);
    found += static_cast<unsigned long>(std::popcount(marks.separators));
    bytes.remove_prefix(std::min(bytes.size(), WideByteBlock::kSize));
  }
  return found >= columns;
}

std::string_view Column(std::string_view text, char separator, unsigned long columns,
                        unsigned long column) noexcept {
  std::string_view rest = text;
  for (unsigned long at = 1; at < column; ++at) Take(rest, separator, false);
  return Take(rest, separator, column == columns);
}

std::string WithColumns(std::string_view text, char separator, unsigned long columns,
                        const std::map<unsigned long, std::string>& values) {
  std::string line;
  std::string_view rest = text;
  for (unsigned long column = 1; column <= columns; ++column) {
    const std::string_view old = Take(rest, separator, column == columns);
    const auto value = values.find(column);
    if (column > 1) line += separator;
    line += value == values.end() ? old : std::string_view(value->second);
  }
  return line;
}

}  // namespace conf_line
