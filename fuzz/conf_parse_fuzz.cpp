#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "framework/conf_line.h"
#include "fuzz/require.h"

// A document prints what it was parsed from and offers the records that the plainest reading of the
// same bytes finds.
namespace {

using fuzz::Require;
using Line = ConfDocument::Line;

constexpr unsigned long kColumns = 3;

// A record as the plainest reading sees it: its text, and its name up to the first colon.
struct Record {
  std::string_view text;
  std::string_view name;
};

std::string_view WithoutEnd(std::string_view raw) {
  if (raw.ends_with('\n')) raw.remove_suffix(1);
  if (raw.ends_with('\r')) raw.remove_suffix(1);
  return raw;
}

std::vector<Record> PlainRecords(std::string_view text) {
  std::vector<Record> records;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size() - 1) + 1;
    const std::string_view line = WithoutEnd(text.substr(0, end));
    text.remove_prefix(end);
    const bool other = line.empty() || line.front() == '#' || line.front() == ':';
    if (other || std::count(line.begin(), line.end(), ':') < 2) continue;
    records.push_back({line, line.substr(0, line.find(':'))});
  }
  return records;
}

// The last column takes the rest of the line.
void RequireColumns(std::string_view text) {
  std::string joined(conf_line::Column(text, ':', kColumns, 1));
  for (unsigned long column = 2; column <= kColumns; ++column) {
    joined += ':';
    joined += conf_line::Column(text, ':', kColumns, column);
  }
  Require(joined == text);
  Require(conf_line::WithColumns(text, ':', kColumns, {}) == text);
}

void RequireFirstOfName(const ConfDocument& document, const std::vector<Record>& records,
                        const Record& record) {
  const auto first = std::find_if(records.begin(), records.end(),
                                  [&](const Record& other) { return other.name == record.name; });
  const Line found = document.FindRecord(record.name, kColumns);
  Require(found != ConfDocument::kNone && document.Text(found) == first->text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const ConfDocument document = fuzz::Parse(text);
  Require(document.Print() == text);
  const std::vector<Record> records = PlainRecords(text);
  Line line = document.NextRecord(0, kColumns);
  for (const Record& record : records) {
    Require(line != ConfDocument::kNone);
    Require(document.Text(line) == record.text && document.Name(line) == record.name);
    RequireColumns(record.text);
    RequireFirstOfName(document, records, record);
    line = document.NextRecord(line + 1, kColumns);
  }
  Require(line == ConfDocument::kNone);
  return 0;
}
