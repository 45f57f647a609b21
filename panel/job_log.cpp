#include "panel/job_log.h"

#include <algorithm>
#include <chrono>
#include <list>

#include "framework/job_table.h"
#include "framework/journal_record.h"
#include "framework/rehearsal.h"
#include "framework/seal.h"
#include "framework/utc.h"
#include "mgr_cf.h"
#include "str.h"
#include "test.h"

namespace brisq_panel {

namespace {

thread_local JobLog* g_current = nullptr;

constexpr const char* kBefore = "before.";
constexpr const char* kAfter = "after.";
constexpr const char* kHidden = "(hidden)";
constexpr int kDefaultDays = 90;
// What a clock's time can bear; the check of the settings allows no more.
constexpr int kMostDays = 36500;

bool IsSecret(const std::string& name) {
  return name == kHash || name == kKeptPassword || name == kFormerHash;
}

// Names of values are single words in a step.
std::string Word(std::string name) {
  std::replace(name.begin(), name.end(), ' ', '_');
  return name;
}

std::string Name(std::string word) {
  std::replace(word.begin(), word.end(), '_', ' ');
  return word;
}

void AddValues(journal::Step& step, const char* prefix, const ObjectState& state, Secrets secrets) {
  for (const auto& [name, value] : state) {
    const bool hide = secrets == Secrets::kHidden && IsSecret(name) && !value.empty();
    step.values[prefix + Word(name)] = hide ? kHidden : value;
  }
}

ObjectState ValuesOf(const journal::Step& step, const std::string& prefix) {
  ObjectState state;
  for (const auto& [word, value] : step.values) {
    if (word.starts_with(prefix)) {
      state[Name(word.substr(prefix.size()))] = value;
    }
  }
  return state;
}

// Of an object that was there before and is there now, what differs.
void KeepDifferences(ObjectChange& change) {
  for (auto value = change.after.begin(); value != change.after.end();) {
    if (change.before[value->first] == value->second) {
      change.before.erase(value->first);
      value = change.after.erase(value);
    } else {
      ++value;
    }
  }
}

std::chrono::hours KeptFor() {
  std::string days = mgr_cf::GetParam("JobHistoryDays");
  const int number = test::Numeric(days) ? str::Int(days) : kDefaultDays;
  return std::chrono::hours(24) * std::min(number, kMostDays);
}

}  // namespace

JobLog::JobLog() { g_current = this; }

JobLog::~JobLog() { g_current = nullptr; }

bool JobLog::IsNew(const std::string& kind, const std::string& name) {
  return known_.emplace(kind, name).second;
}

void JobLog::Watch(const std::string& kind, const std::string& name) {
  if (g_current != nullptr && g_current->IsNew(kind, name)) {
    g_current->watched_.push_back({kind, name, StateOf(kind, name), {}});
  }
}

void JobLog::Declare(ObjectChange change) {
  if (g_current != nullptr && g_current->IsNew(change.kind, change.name)) {
    g_current->declared_.push_back(std::move(change));
  }
}

void JobLog::Undoes(int job) {
  if (g_current != nullptr) {
    g_current->undoes_ = job;
  }
}

std::vector<ObjectChange> JobLog::Changes() const {
  std::vector<ObjectChange> changes;
  std::vector<ObjectChange> all = watched_;
  for (ObjectChange& change : all) {
    change.after = StateOf(change.kind, change.name);
  }
  all.insert(all.end(), declared_.begin(), declared_.end());
  for (ObjectChange& change : all) {
    if (!change.Made() && !change.Removed()) {
      KeepDifferences(change);
    }
    if (!change.before.empty() || !change.after.empty()) {
      changes.push_back(std::move(change));
    }
  }
  return changes;
}

void JobLog::Write(const Request& request) {
  const std::vector<ObjectChange> changes = Changes();
  if (changes.empty() || Rehearsal::Current() != nullptr) {
    return;
  }
  // Without a secret nothing needs the key, whose own mode may be what is mended.
  const std::string shown = ToText(changes, Secrets::kHidden);
  const std::string whole = ToText(changes, Secrets::kKept);
  job_table::Add({0, request.id(), request.name(), request.who(), UtcText(request.started()),
                  job_table::kDone, shown, whole == shown ? "" : mgr_seal::Seal(whole), undoes_});
  if (const auto kept = KeptFor(); kept.count() > 0) {
    job_table::ForgetBefore(UtcText(request.started() - kept));
  }
}

std::string ToText(const std::vector<ObjectChange>& changes, Secrets secrets) {
  std::string text;
  for (const ObjectChange& change : changes) {
    journal::Step step{change.kind, {{"name", change.name}}};
    AddValues(step, kBefore, change.before, secrets);
    AddValues(step, kAfter, change.after, secrets);
    text += journal::Text(step) + "\n";
  }
  return text;
}

std::vector<ObjectChange> FromText(const std::string& text) {
  std::list<std::string> lines;
  str::Split(text, "\n", lines);
  std::vector<ObjectChange> changes;
  for (const std::string& line : lines) {
    if (!line.empty()) {
      const journal::Step step = journal::FromText(line);
      changes.push_back(
          {step.kind, step.Value("name"), ValuesOf(step, kBefore), ValuesOf(step, kAfter)});
    }
  }
  return changes;
}

}  // namespace brisq_panel
