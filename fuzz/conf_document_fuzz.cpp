#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "framework/conf_document.h"
#include "framework/conf_line.h"

// A document prints what it was parsed from, and after any edits what a fresh parse of its print
// prints and finds.
namespace {

using Line = ConfDocument::Line;

constexpr unsigned long kColumns = 3;

void Require(bool holds) {
  if (!holds) std::abort();
}

ConfDocument Parse(std::string_view text) {
  return ConfDocument(std::make_shared<ConfBytes>(text), mgr_token::Params{});
}

// Same records in the same order, each found by its name alike.
void RequireSame(const ConfDocument& document, const ConfDocument& fresh) {
  Line line = document.NextRecord(0, kColumns);
  Line other = fresh.NextRecord(0, kColumns);
  for (; line != ConfDocument::kNone && other != ConfDocument::kNone;
       line = document.NextRecord(line + 1, kColumns),
       other = fresh.NextRecord(other + 1, kColumns)) {
    Require(document.Text(line) == fresh.Text(other));
    const Line found = document.FindRecord(document.Name(line), kColumns);
    Require(document.Text(found) == fresh.Text(fresh.FindRecord(fresh.Name(other), kColumns)));
    const std::string changed = conf_line::WithColumns(document.Text(line), ':', kColumns, {});
    Require(changed == document.Text(line));
  }
  Require(line == other);
}

// Each instruction is one byte that says what to do with which line.
void Edit(ConfDocument& document, std::string_view instructions) {
  for (const char instruction : instructions) {
    const auto byte = static_cast<unsigned char>(instruction);
    if (document.Lines() == 0 || byte % 4 == 3) {
      document.Put(document.Extend(), std::string(1, static_cast<char>('a' + byte % 26)) + ":x:\n");
      continue;
    }
    const Line line = byte / 4 % document.Lines();
    const bool last = line == document.Last();
    std::string raw(document.Raw(line));
    if (byte % 4 == 0) raw.clear();
    if (byte % 4 == 1 && !raw.empty() && raw[0] != '\n') raw[0] = static_cast<char>(byte | 0x40);
    if (byte % 4 == 2) raw = "b:" + raw;
    if (!raw.empty() && !raw.ends_with('\n') && !last) raw += '\n';
    document.Put(line, raw);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  // Up to the first NUL: instructions; behind it: the file.
  const std::size_t end = input.find('\0');
  const std::string_view text = end == std::string_view::npos ? input : input.substr(end + 1);
  ConfDocument document = Parse(text);
  Require(document.Print() == text);
  RequireSame(document, Parse(text));
  if (end == std::string_view::npos) return 0;
  // A file that ends without an end of line gets one, as it does before a line is added.
  if (!text.empty() && !text.ends_with('\n'))
    document.Put(document.Last(), std::string(document.Raw(document.Last())) + '\n');
  Edit(document, input.substr(0, end));
  RequireSame(document, Parse(document.Print()));
  return 0;
}
