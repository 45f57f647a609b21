#include "panel/run_request.h"

#include <algorithm>
#include <iterator>
#include <optional>

#include "framework/database.h"
#include "framework/rehearsal.h"
#include "mgr_err.h"
#include "panel/held_signals.h"
#include "panel/job_log.h"
#include "panel/recovery.h"

namespace brisq_panel {

namespace {

thread_local NoteKeeper* note_keeper = nullptr;

mgr_err::Error WithNotes(const mgr_err::Error& error, const std::vector<std::string>& notes) {
  std::string value = error.value();
  for (const std::string& note : notes) {
    value += (value.empty() ? "" : "; ") + note;
  }
  mgr_err::Error full(error.type(), error.object(), value);
  if (error.report()) {
    full.set_report();
  }
  return full;
}

// As a part of the request that goes on; the notes are those that it adds.
std::vector<std::string> Join(Request& outer, const std::function<void(Request&)>& work) {
  const auto before = static_cast<std::ptrdiff_t>(outer.Notes().size());
  work(outer);
  return {outer.Notes().begin() + before, outer.Notes().end()};
}

// The lock is waited for, and meanwhile its holder may have died: what that has left must be dealt
// with before anything is built on it, for a later recovery would take back what looks alike.
// Returns what was recovered, in plain words.
// @throws "later" when that was not possible
std::vector<std::string> LockAfterTheDead(std::optional<Request>& request,
                                          const std::string& name) {
  constexpr int kMostRounds = 3;  // another process may die in between
  std::vector<std::string> recovered;
  for (int round = 0;; ++round) {
    request.emplace(name);
    mgr_db::ThreadConnection()->LockForWriting();
    // A dry run takes nothing back, and nothing of it is for good.
    if (Rehearsal::Current() != nullptr || !NeedsRecovery()) {
      return recovered;
    }
    if (round == kMostRounds) {
      throw mgr_err::Error("later", name,
                           "changes nothing yet: " +
                               (recovered.empty() ? "requests were killed" : recovered.back()));
    }
    request.reset();
    const std::vector<std::string> words = RecoverRequests();
    recovered.insert(recovered.end(), words.begin(), words.end());
  }
}

}  // namespace

std::vector<std::string> RunRequest(const std::string& name,
                                    const std::function<void(Request&)>& work) {
  if (Request* outer = Request::Current()) {
    return Join(*outer, work);
  }
  const HeldSignals held;  // ends last: taking back must not be cut off either
  std::optional<Request> request;
  std::vector<std::string> recovered;  // said when the request succeeds; the log has it anyway
  try {
    recovered = LockAfterTheDead(request, name);
    JobLog log;
    work(*request);
    log.Write(*request);
    request->Commit();
    if (request->Owes() && note_keeper != nullptr) {
      note_keeper->owing_.push_back(request->id());
    }
  } catch (const mgr_err::Error& error) {
    if (!request) {
      throw;
    }
    request->Rollback();
    if (request->Notes().empty()) {
      throw;
    }
    throw WithNotes(error, request->Notes());
  }
  recovered.insert(recovered.end(), request->Notes().begin(), request->Notes().end());
  return recovered;
}

void DoRequest(const std::string& name, const std::function<void(Request&)>& work) {
  const std::vector<std::string> notes = RunRequest(name, work);
  if (note_keeper != nullptr) {
    std::copy(notes.begin(), notes.end(), std::back_inserter(note_keeper->notes_));
  }
}

NoteKeeper::NoteKeeper() { note_keeper = this; }

NoteKeeper::~NoteKeeper() { note_keeper = nullptr; }

bool NoteKeeper::IsAnythingOwed() const noexcept {
  if (owing_.empty()) {
    return false;
  }
  try {
    const std::vector<std::string> open = journal::Ids();  // sorted
    return std::any_of(owing_.begin(), owing_.end(), [&](const std::string& id) {
      return std::binary_search(open.begin(), open.end(), id);
    });
  } catch (const mgr_err::Error&) {
    return true;
  }
}

}  // namespace brisq_panel
