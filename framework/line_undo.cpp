#include "framework/line_undo.h"

#include <algorithm>
#include <list>
#include <memory>
#include <optional>
#include <set>
#include <unordered_map>
#include <utility>

#include "framework/conf_line.h"
#include "framework/conf_save.h"
#include "framework/seal.h"

namespace line_undo {

namespace {

constexpr char kSeparator = ':';
constexpr const char* kSealed = "sealed";

// The lines of a content, each with its end, found by their texts and names without looking at the
// others: a request may have changed most of a large file.
class Lines {
 public:
  using Raw = std::list<std::string>;
  using Place = Raw::iterator;

  Lines(std::string_view content, char separator) : separator_(separator) {
    while (!content.empty()) {
      const std::size_t end = std::min(content.find('\n'), content.size() - 1) + 1;
      Add(raw_.end(), std::string(content.substr(0, end)));
      content.remove_prefix(end);
    }
  }

  Place Begin() { return raw_.begin(); }
  Place End() { return raw_.end(); }

  /// Place of the first line with this text; End() when there is none.
  Place Find(const std::string& text) {
    const auto places = by_text_.find(text);
    return places == by_text_.end() ? End() : places->second.front();
  }

  bool HasNamed(const std::string& name) const { return by_name_.count(name) != 0; }

  void Remove(Place at) {
    Forget(at);
    raw_.erase(at);
  }

  void Replace(Place at, const std::string& text) {
    Forget(at);
    *at = text + at->substr(at->size() - conf_line::EndLength(*at));
    Know(at);
  }

  /// Puts a line with this text in front of `at`.
  void Insert(Place at, const std::string& text) {
    const std::string end = raw_.empty() || !raw_.front().ends_with("\r\n") ? "\n" : "\r\n";
    if (at != Begin()) {
      // The last line of a file may lack its end; its text stays the same.
      const Place before = std::prev(at);
      *before = conf_line::WithEnd(*before, end);
    }
    Add(at, text + end);
  }

  std::string Joined() const {
    std::string content;
    for (const std::string& raw : raw_) {
      content += raw;
    }
    return content;
  }

 private:
  static std::string Text(const std::string& raw) {
    return raw.substr(0, raw.size() - conf_line::EndLength(raw));
  }
  std::string Name(const std::string& text) const { return text.substr(0, text.find(separator_)); }
  bool IsNamed(const std::string& text) const { return text.find(separator_) != std::string::npos; }

  void Add(Place in_front_of, std::string raw) { Know(raw_.insert(in_front_of, std::move(raw))); }

  void Know(Place at) {
    const std::string text = Text(*at);
    by_text_[text].push_back(at);
    if (IsNamed(text)) {
      ++by_name_[Name(text)];
    }
  }

  void Forget(Place at) {
    const std::string text = Text(*at);
    const auto places = by_text_.find(text);
    places->second.remove(at);
    if (places->second.empty()) {
      by_text_.erase(places);
    }
    const auto named = IsNamed(text) ? by_name_.find(Name(text)) : by_name_.end();
    if (named != by_name_.end() && --named->second == 0) {
      by_name_.erase(named);
    }
  }

  const char separator_;
  Raw raw_;
  std::unordered_map<std::string, std::list<Place>> by_text_;  // of each text in the file's order
  std::unordered_map<std::string, std::size_t> by_name_;       // how many lines
};

enum class Result { kUndone, kNothingToDo, kSomebodyElses };

// Where a removed line belongs: behind its neighbour, or at the end when that has gone.
Lines::Place PlaceFor(Lines& lines, const Change& change) {
  if (change.behind.empty()) {
    return lines.Begin();
  }
  const Lines::Place neighbour = lines.Find(change.behind);
  return neighbour == lines.End() ? lines.End() : std::next(neighbour);
}

Result BringBack(Lines& lines, const Change& change) {
  if (lines.HasNamed(change.name)) {
    return Result::kSomebodyElses;
  }
  lines.Insert(PlaceFor(lines, change), change.before);
  return Result::kUndone;
}

bool IsAsBefore(Lines& lines, const Change& change) {
  return change.before.empty() ? !lines.HasNamed(change.name)
                               : lines.Find(change.before) != lines.End();
}

// Names of the lines that are as they were before their first change: a recovery that was killed
// has taken all of their changes back.
std::set<std::string> TakenBack(Lines& lines, const std::vector<Change>& changes) {
  std::set<std::string> seen;
  std::set<std::string> taken_back;
  for (const Change& change : changes) {
    if (seen.insert(change.name).second && IsAsBefore(lines, change)) {
      taken_back.insert(change.name);
    }
  }
  return taken_back;
}

Result UndoOne(Lines& lines, const Change& change) {
  const Lines::Place after = change.after.empty() ? lines.End() : lines.Find(change.after);
  if (after != lines.End()) {
    if (change.before.empty()) {
      lines.Remove(after);
    } else {
      lines.Replace(after, change.before);
    }
    return Result::kUndone;
  }
  if (IsAsBefore(lines, change)) {
    return Result::kNothingToDo;
  }
  return change.after.empty() ? BringBack(lines, change) : Result::kSomebodyElses;
}

ConfSnapshot SnapshotOf(const std::string& content) {
  return ConfSnapshot{std::make_shared<ConfBytes>(), nullptr, {std::string_view(content)}};
}

}  // namespace

journal::Step ToStep(const Change& change, const std::string& file, const std::string& what,
                     const std::string& key) {
  const journal::Step texts{
      "line", {{"before", change.before}, {"after", change.after}, {"behind", change.behind}}};
  return {"line",
          {{"file", file},
           {"name", change.name},
           {"what", what},
           {"key", key},
           {kSealed, mgr_seal::Seal(journal::Text(texts))}}};
}

Change FromStep(const journal::Step& step) {
  const journal::Step texts = journal::FromText(mgr_seal::Open(step.Value(kSealed)));
  return {step.Value("name"), texts.Value("before"), texts.Value("after"), texts.Value("behind")};
}

Undone Undo(std::string content, const std::vector<Change>& changes, char separator) {
  Lines lines(content, separator);
  Undone undone;
  std::set<std::string> left;
  const std::set<std::string> taken_back = TakenBack(lines, changes);
  for (auto change = changes.rbegin(); change != changes.rend(); ++change) {
    if (taken_back.contains(change->name)) {
      continue;
    }
    const Result result = UndoOne(lines, *change);
    undone.changed = undone.changed || result == Result::kUndone;
    if (result == Result::kSomebodyElses && left.insert(change->name).second) {
      undone.left.push_back(change->name);
    }
  }
  undone.content = undone.changed ? lines.Joined() : std::move(content);
  return undone;
}

Outcome UndoInFile(const std::string& file, const std::vector<Change>& changes) {
  ConfSave save(file);  // also clears away what the dead process's own save has left
  std::optional<ConfContent> found = save.Look({});
  Outcome outcome;
  while (found) {
    const Undone undone = Undo(std::string(found->bytes->View()), changes, kSeparator);
    outcome.left = undone.left;
    // Once something was put in place, what that has pushed out must come back too.
    if (!undone.changed && save.Placements() == 0) {
      return outcome;
    }
    outcome.changed = true;
    found = save.Replace(SnapshotOf(undone.content), found->stamp);
  }
  if (outcome.changed) {
    save.Finish();
  }
  return outcome;
}

}  // namespace line_undo
