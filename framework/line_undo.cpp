#include "framework/line_undo.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <set>
#include <utility>

#include "framework/conf_line.h"
#include "framework/conf_save.h"
#include "framework/seal.h"

namespace line_undo {

namespace {

constexpr char kSeparator = ':';
constexpr const char* kSealed = "sealed";

// The lines of a content, each with its end.
class Lines {
 public:
  explicit Lines(std::string_view content) {
    while (!content.empty()) {
      const std::size_t end = std::min(content.find('\n'), content.size() - 1) + 1;
      raw_.emplace_back(content.substr(0, end));
      content.remove_prefix(end);
    }
  }

  std::size_t size() const noexcept { return raw_.size(); }

  /// Place of the line with this text; size() when there is none.
  std::size_t Find(const std::string& text) const {
    std::size_t at = 0;
    while (at < size() && Text(raw_[at]) != text) {
      ++at;
    }
    return at;
  }

  bool HasNamed(const std::string& name, char separator) const {
    return std::any_of(raw_.begin(), raw_.end(), [&](const std::string& raw) {
      return raw.size() > name.size() && raw.starts_with(name) && raw[name.size()] == separator;
    });
  }

  void Remove(std::size_t at) { raw_.erase(raw_.begin() + static_cast<std::ptrdiff_t>(at)); }

  void Replace(std::size_t at, const std::string& text) {
    const std::string& raw = raw_[at];
    raw_[at] = text + raw.substr(raw.size() - conf_line::EndLength(raw));
  }

  void Insert(std::size_t at, const std::string& text) {
    const std::string end = raw_.empty() || !raw_.front().ends_with("\r\n") ? "\n" : "\r\n";
    if (at > 0) {
      raw_[at - 1] = conf_line::WithEnd(raw_[at - 1], end);
    }
    raw_.insert(raw_.begin() + static_cast<std::ptrdiff_t>(at), text + end);
  }

  std::string Joined() const {
    std::string content;
    for (const std::string& raw : raw_) {
      content += raw;
    }
    return content;
  }

 private:
  static std::string_view Text(const std::string& raw) {
    return std::string_view(raw).substr(0, raw.size() - conf_line::EndLength(raw));
  }

  std::vector<std::string> raw_;
};

enum class Result { kUndone, kNothingToDo, kSomebodyElses };

// Where a removed line belongs: behind its neighbour, or at the end when that has gone.
std::size_t PlaceFor(const Lines& lines, const Change& change) {
  return change.behind.empty() ? 0 : std::min(lines.Find(change.behind) + 1, lines.size());
}

Result BringBack(Lines& lines, const Change& change, char separator) {
  if (lines.HasNamed(change.name, separator)) {
    return Result::kSomebodyElses;
  }
  lines.Insert(PlaceFor(lines, change), change.before);
  return Result::kUndone;
}

bool IsAsBefore(const Lines& lines, const Change& change, char separator) {
  return change.before.empty() ? !lines.HasNamed(change.name, separator)
                               : lines.Find(change.before) < lines.size();
}

// Names of the lines that are as they were before their first change: a recovery that was killed
// has taken all of their changes back.
std::set<std::string> TakenBack(const Lines& lines, const std::vector<Change>& changes,
                                char separator) {
  std::set<std::string> seen;
  std::set<std::string> taken_back;
  for (const Change& change : changes) {
    if (seen.insert(change.name).second && IsAsBefore(lines, change, separator)) {
      taken_back.insert(change.name);
    }
  }
  return taken_back;
}

Result UndoOne(Lines& lines, const Change& change, char separator) {
  const std::size_t after = change.after.empty() ? lines.size() : lines.Find(change.after);
  if (after < lines.size()) {
    if (change.before.empty()) {
      lines.Remove(after);
    } else {
      lines.Replace(after, change.before);
    }
    return Result::kUndone;
  }
  if (IsAsBefore(lines, change, separator)) {
    return Result::kNothingToDo;
  }
  return change.after.empty() ? BringBack(lines, change, separator) : Result::kSomebodyElses;
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
  Lines lines(content);
  Undone undone;
  const std::set<std::string> taken_back = TakenBack(lines, changes, separator);
  for (auto change = changes.rbegin(); change != changes.rend(); ++change) {
    if (taken_back.contains(change->name)) {
      continue;
    }
    const Result result = UndoOne(lines, *change, separator);
    undone.changed = undone.changed || result == Result::kUndone;
    if (result == Result::kSomebodyElses &&
        std::find(undone.left.begin(), undone.left.end(), change->name) == undone.left.end()) {
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
