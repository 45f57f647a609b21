#include "panel/recovery.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <mutex>
#include <set>
#include <utility>

#include "framework/journal_recovery.h"
#include "framework/modules.h"
#include "framework/owed_call.h"
#include "mgr_err.h"
#include "mgr_log.h"
#include "panel/certificate_cleanup.h"

namespace brisq_panel {

namespace {

mgr_log::Module log_channel("journal", "brisq");

// The server may have read, or loaded, what has been taken back.
void AskForReload(const journal::Recovered& recovered) {
  const bool changed = recovered.lines_undone || recovered.files_undone;
  if (changed && brisq_api::FindAction(kReloadAction) != nullptr) {
    owed_call::Make(kReloadAction, recovered.files_undone ? "hard=on" : "");
  }
}

void Log(const std::string& words) {
  if (log_channel.Check(mgr_log::kWarning)) {
    log_channel.Write(mgr_log::kWarning, "%s", words.c_str());
  }
}

using Clock = std::chrono::steady_clock;

// Entries that stay although this process has tried to recover them, and when.
class Tried {
 public:
  void Set(const std::string& entry, bool stays) {
    const std::lock_guard lock(mutex_);
    if (stays) {
      entries_[entry] = Clock::now();
    } else {
      entries_.erase(entry);
    }
  }
  bool Lately(const std::string& entry) {
    const std::lock_guard lock(mutex_);
    const auto tried = entries_.find(entry);
    return tried != entries_.end() && Clock::now() - tried->second < kPause;
  }

 private:
  static constexpr std::chrono::minutes kPause{1};

  std::mutex mutex_;
  std::map<std::string, Clock::time_point> entries_;
};

Tried& InVain() {
  static Tried& tried = *new Tried;  // requests of other threads may outlive the statics
  return tried;
}

struct Outcome {
  std::vector<std::string> words;  // of each request
  std::string hindrance;           // why the rest could not be begun; empty when all were
};

Outcome Recover() noexcept {
  Outcome outcome;
  try {
    if (journal::HasDead()) {
      for (const journal::Recovered& recovered : journal::RecoverDead(AskForReload)) {
        InVain().Set(recovered.entry, !recovered.failed.empty());
        outcome.words.push_back(journal::Words(recovered));
      }
    }
  } catch (const std::exception& error) {
    outcome.hindrance =
        std::string("a request whose process had died is not recovered yet: ") + error.what();
  }
  return outcome;
}

// What stands in the way of a server, which tries every few seconds.
class LastHindrance {
 public:
  // True when it is another one than last time; an empty one is none.
  bool Changes(const std::string& hindrance) {
    const std::lock_guard lock(mutex_);
    const bool other = hindrance != last_;
    last_ = hindrance;
    return other && !hindrance.empty();
  }

 private:
  std::mutex mutex_;
  std::string last_;
};

}  // namespace

bool NeedsRecovery() {
  const std::set<std::string> dead = journal::DeadIds();
  return std::any_of(dead.begin(), dead.end(),
                     [](const std::string& entry) { return !InVain().Lately(entry); });
}

std::vector<std::string> RecoverRequests() noexcept {
  Outcome outcome = Recover();
  if (!outcome.hindrance.empty()) {
    outcome.words.push_back(std::move(outcome.hindrance));
  }
  for (const std::string& text : outcome.words) {
    Log(text);
  }
  return std::move(outcome.words);
}

void RecoverInTurn() noexcept {
  static LastHindrance last;
  try {
    const Outcome outcome = NeedsRecovery() ? Recover() : Outcome();
    for (const std::string& text : outcome.words) {
      Log(text);
    }
    if (last.Changes(outcome.hindrance)) {
      Log(outcome.hindrance);
    }
  } catch (const mgr_err::Error&) {
    // A journal that can't be read is said by each request.
  }
}

}  // namespace brisq_panel
