#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "framework/conf_change.h"
#include "framework/conf_merge.h"
#include "fuzz/require.h"
#include "mgr_err.h"

// What somebody did to a file is done to another copy of it without losing or inventing a line.
namespace {

using fuzz::Parse;
using fuzz::Require;

std::vector<std::string> SortedLines(const ConfDocument& document) {
  std::vector<std::string> lines;
  for (ConfDocument::Line line = document.NextLine(0); line != ConfDocument::kNone;
       line = document.NextLine(line + 1)) {
    lines.emplace_back(document.Text(line));
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

// Our changes and somebody's: whatever was added by either is there.
void MergeWithOwnChange(std::string_view from, std::string_view to) {
  auto ours =
      std::make_shared<ConfDocument>(std::make_shared<ConfBytes>(from), mgr_token::Params{});
  ConfChange change = ConfChange::Add("own name", "own name:x");
  try {
    change.Apply(ours);
  } catch (const mgr_err::Error&) {
    return;
  }
  MergeEdit(*ours, Parse(from), Parse(to));
  Require(ours->FindNamed("own name") != ConfDocument::kNone);
  std::vector<std::string> want = SortedLines(Parse(to));
  want.emplace_back("own name:x");
  std::sort(want.begin(), want.end());
  Require(SortedLines(*ours) == want);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::size_t middle = std::min(input.find('\0'), input.size());
  const std::string_view from = input.substr(0, middle);
  const std::string_view to = middle < size ? input.substr(middle + 1) : std::string_view();
  ConfDocument copy = Parse(from);
  MergeEdit(copy, Parse(from), Parse(from));
  Require(copy.Print() == from);
  MergeEdit(copy, Parse(from), Parse(to));
  Require(SortedLines(copy) == SortedLines(Parse(to)));
  MergeWithOwnChange(from, to);
  return 0;
}
