#include "framework/conf_merge.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "framework/conf_line.h"

namespace {

using Line = ConfDocument::Line;
using Columns = std::vector<std::string_view>;

constexpr Line kNone = ConfDocument::kNone;

// Lines of `left` whose text `right` does not have, or has fewer times.
std::vector<Line> Missing(const ConfDocument& left, const ConfDocument& right) {
  std::unordered_map<std::string_view, std::size_t> there;
  for (Line line = right.NextLine(0); line != kNone; line = right.NextLine(line + 1)) {
    ++there[right.Text(line)];
  }
  std::vector<Line> missing;
  for (Line line = left.NextLine(0); line != kNone; line = left.NextLine(line + 1)) {
    const auto same = there.find(left.Text(line));
    if (same == there.end() || same->second == 0) {
      missing.push_back(line);
    } else {
      --same->second;
    }
  }
  return missing;
}

Columns Split(std::string_view text, char separator) {
  Columns columns;
  for (std::size_t end = 0; end != std::string_view::npos;) {
    end = text.find(separator);
    columns.push_back(text.substr(0, end));
    if (end != std::string_view::npos) text.remove_prefix(end + 1);
  }
  return columns;
}

// The text with those columns changed that differ between `from` and `to`.
std::string MergeColumns(std::string_view text, std::string_view from, std::string_view to,
                         char separator) {
  const Columns own = Split(text, separator);
  const Columns old = Split(from, separator);
  const Columns fresh = Split(to, separator);
  if (own.size() != old.size() || old.size() != fresh.size()) return std::string(to);
  std::string merged;
  for (std::size_t column = 0; column < own.size(); ++column) {
    if (column > 0) merged += separator;
    merged += old[column] == fresh[column] ? own[column] : fresh[column];
  }
  return merged;
}

Line FindText(const ConfDocument& document, std::string_view text, std::string_view name) {
  if (!name.empty()) {
    const auto same_name = document.AllNamed(name);
    const auto same = std::find_if(same_name.begin(), same_name.end(),
                                   [&](Line line) { return document.Text(line) == text; });
    return same == same_name.end() ? kNone : *same;
  }
  for (Line line = document.NextLine(0); line != kNone; line = document.NextLine(line + 1)) {
    if (document.Text(line) == text) return line;
  }
  return kNone;
}

void Append(ConfDocument& document, std::string_view raw) {
  const Line last = document.Last();
  const std::string end(document.LineEnd());
  if (last != kNone && !document.Raw(last).ends_with('\n')) {
    document.Put(last, document.Raw(last), conf_line::EndFor(document.Raw(last), end));
  }
  document.Put(document.Extend(), raw, conf_line::EndFor(raw, end));
}

void Replace(ConfDocument& document, Line line, const std::string& text) {
  const std::string_view raw = document.Raw(line);
  std::string_view end = raw.substr(raw.size() - conf_line::EndLength(raw));
  // With another end the CR would become a part of it.
  if (text.ends_with('\r')) end = "\r\n";
  document.Put(line, text, end);
}

// True when there is a column that both have changed, each in its own way.
bool SameColumns(std::string_view old, std::string_view left, std::string_view right,
                 char separator) {
  const Columns before = Split(old, separator);
  const Columns one = Split(left, separator);
  const Columns other = Split(right, separator);
  if (before.size() != one.size() || before.size() != other.size()) return left != right;
  for (std::size_t at = 0; at < before.size(); ++at) {
    if (before[at] != one[at] && before[at] != other[at] && one[at] != other[at]) return true;
  }
  return false;
}

// The text of a name's line; empty when there is none.
std::string_view TextOf(const ConfDocument& document, std::string_view name) {
  const Line line = document.FindNamed(name);
  return line == kNone ? std::string_view() : document.Text(line);
}

bool Conflicts(const ConfDocument& target, const ConfDocument& from, const ConfDocument& to,
               std::string_view name) {
  const std::string_view old = TextOf(from, name);
  const std::string_view own = TextOf(target, name);
  const std::string_view edited = TextOf(to, name);
  if (own == old || edited == old) return false;
  // What both have removed stays removed; but one added by both would be there twice.
  if (own == edited) return old.empty();
  if (old.empty() || own.empty() || edited.empty()) return true;
  return SameColumns(old, own, edited, target.Syntax().separator);
}

}  // namespace

void MergeEdit(ConfDocument& target, const ConfDocument& from, const ConfDocument& to) {
  std::multimap<std::string_view, Line> gone;
  for (const Line line : Missing(from, to)) gone.emplace(from.Name(line), line);
  for (const Line line : Missing(to, from)) {
    const std::string_view name = to.Name(line);
    const auto old = name.empty() ? gone.end() : gone.find(name);
    if (old == gone.end()) {
      Append(target, to.Raw(line));
      continue;
    }
    const std::string_view old_text = from.Text(old->second);
    Line own = FindText(target, old_text, name);
    if (own == kNone) own = target.FindNamed(name);
    if (own != kNone) {
      Replace(target, own,
              MergeColumns(target.Text(own), old_text, to.Text(line), target.Syntax().separator));
    }
    gone.erase(old);
  }
  for (const auto& [name, line] : gone) {
    const Line own = FindText(target, from.Text(line), name);
    if (own != kNone) target.Put(own, {});
  }
}

std::string EditConflicts(const ConfDocument& target, const ConfDocument& from,
                          const ConfDocument& to) {
  std::set<std::string_view> names;
  for (const Line line : Missing(from, to)) names.insert(from.Name(line));
  for (const Line line : Missing(to, from)) names.insert(to.Name(line));
  names.erase(std::string_view());
  constexpr std::size_t kMost = 5;
  std::size_t found = 0;
  std::string text;
  for (const std::string_view name : names) {
    if (!Conflicts(target, from, to, name)) continue;
    if (++found > kMost) return text + ", ...";
    text += (text.empty() ? "" : ", ") + std::string(name);
  }
  return text;
}
