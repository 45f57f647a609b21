#include "framework/journal_recovery.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <map>
#include <optional>
#include <utility>

#include "brisq_api.h"
#include "framework/database.h"
#include "framework/due.h"
#include "framework/file_access.h"
#include "framework/file_steps.h"
#include "framework/file_swap.h"
#include "framework/job_table.h"
#include "framework/later_jobs.h"
#include "framework/line_undo.h"
#include "framework/modules.h"
#include "framework/owed_call.h"
#include "framework/request.h"
#include "framework/sys.h"
#include "framework/user_dir.h"
#include "mgr_err.h"
#include "mgr_file.h"

namespace journal {

namespace {

constexpr const char* kLine = "line";
constexpr const char* kSwap = "swap";

// True unless somebody else has put something there.
bool UndoSystemDir(const Step& step) {
  const std::string path = step.Value("path");
  if (sys::RmDir(AT_FDCWD, path.c_str()) == 0) {
    file_steps::SyncDirectoryAt(file_steps::DirectoryOf(path), path);
    return true;
  }
  if (errno == ENOENT) {
    return true;
  }
  if (errno != ENOTEMPTY && errno != EEXIST && errno != ENOTDIR) {
    sys::Fail("rmdir", path);
  }
  return false;
}

bool NothingToUndo(const Step&) { return true; }
void NothingToFinish(const Step&) {}

// How a kind of step is taken back, and brought to its end.
struct Kind {
  bool (*undo)(const Step&);
  void (*finish)(const Step&);
};

const std::map<std::string, Kind>& Kinds() {
  static const std::map<std::string, Kind> kinds = {
      {kSwap, {FileSwap::Undo, FileSwap::Finish}},
      {"dir", {user_dir::Undo, NothingToFinish}},
      {"sysdir", {UndoSystemDir, NothingToFinish}},
      {"access", {file_access::Undo, NothingToFinish}},
  };
  return kinds;
}

const Kind& KindOf(const Step& step) {
  static const Kind none = {NothingToUndo, NothingToFinish};
  const auto kind = Kinds().find(step.kind);
  return kind == Kinds().end() ? none : kind->second;
}

// A directory that is not safe to work in is the doing of somebody who can change it.
bool IsNotSafe(const mgr_err::Error& error) { return error.value().starts_with("not safe:"); }

bool IsCommitted(const Left& left, const std::optional<job_table::Job>& job) {
  const bool noted = std::any_of(left.steps.begin(), left.steps.end(),
                                 [](const Step& step) { return step.kind == "committed"; });
  return noted || (job && job->state == job_table::kDone);
}

// What is undone gets a row too, so that the list of jobs tells of it.
int NumberOf(const Left& left, const std::optional<job_table::Job>& job) {
  if (job) {
    return job->id;
  }
  return job_table::Add({0,
                         left.id,
                         left.head.Value("name"),
                         left.head.Value("who"),
                         left.head.Value("started"),
                         job_table::kUndone,
                         {},
                         {},
                         0});
}

std::string WordsOf(const Step& step) {
  return step.kind == kLine ? "line of " + step.Value("name") + " in " + step.Value("file")
                            : step.Value("what");
}

// The recovery of one entry. Run takes the steps back, with the database's write lock held, and
// notes each as settled in the entry at once: it is never taken back again, for by the next time
// others may have built on it. When the process is killed between the two nobody has: the next
// request recovers before it changes anything, and finds the step taken back as it should be.
class EntryRecovery {
 public:
  explicit EntryRecovery(Dead& dead)
      : dead_(dead), entry_(dead.entry), job_(job_table::OfEntry(dead.entry.id)) {
    recovered_.entry = entry_.id;
    recovered_.request = entry_.head.Value("name");
    recovered_.who = entry_.head.Value("who");
    recovered_.started = entry_.head.Value("started");
  }

  void Run() {
    recovered_.committed = IsCommitted(entry_, job_);
    if (recovered_.committed) {
      Finish();
    } else {
      Undo();
    }
    recovered_.job = NumberOf(entry_, job_);
    TellJob();
  }

  // Behind the commit of what Run has done.
  void End(const std::function<void(const Recovered&)>& before_removal) {
    try {
      MakeCalls();
      before_removal(recovered_);
      if (!recovered_.failed.empty() || !IsRemoved()) {
        Note(dead_, {ToldStep()});
      }
    } catch (const std::exception& error) {  // an action may throw any
      recovered_.failed.push_back(error.what());
    }
  }

  const Recovered& recovered() const { return recovered_; }

 private:
  bool IsOpen(std::size_t place) const { return !entry_.settled.contains(place); }

  void Settle(const std::vector<std::size_t>& places, const std::string& changed) {
    std::vector<Step> records;
    for (const std::size_t place : places) {
      records.push_back(SettledStep(place, changed));
      entry_.settled.insert(place);
    }
    Note(dead_, records);
    if (!changed.empty()) {
      entry_.owed.insert(changed);
    }
  }

  void GiveUp(std::size_t place, const std::string& why) {
    recovered_.lost.push_back(WordsOf(entry_.steps[place]) + ": " + why);
    Settle({place}, {});
  }

  // A step that was refused before; what looks as it has left it may be a later job's by now.
  bool IsOvertaken(const Step& step) {
    if (job_ && !later_) {
      later_.emplace(job_->id);
    }
    return later_ && later_->Touching(step) != 0;
  }

  // Gives up what was overtaken; true when the step is still to be taken back.
  bool IsToUndo(std::size_t place) {
    if (!IsOpen(place)) {
      return false;
    }
    if (IsOvertaken(entry_.steps[place])) {
      GiveUp(place, "a later job has changed it");
      return false;
    }
    return true;
  }

  void Undo() {
    for (std::size_t place = entry_.steps.size(); place-- > 0;) {
      if (Kinds().contains(entry_.steps[place].kind) && IsToUndo(place)) {
        UndoStep(place);
      }
    }
    for (const auto& [file, lines] : OpenLines()) {
      UndoLines(file, lines);
    }
    recovered_.lines_undone = entry_.owed.contains(kLine);
    recovered_.files_undone = entry_.owed.contains(kSwap);
  }

  void UndoStep(std::size_t place) {
    const Step& step = entry_.steps[place];
    bool undone = false;
    try {
      undone = KindOf(step).undo(step);
    } catch (const mgr_err::Error& error) {
      if (error.type() == "missed") {
        return GiveUp(place, error.value());
      }
      if (!IsNotSafe(error)) {
        recovered_.failed.push_back(error.what());
        return;
      }
    }
    if (!undone) {
      recovered_.left.push_back(WordsOf(step));
    }
    Settle({place}, undone && step.kind == kSwap ? kSwap : "");
  }

  struct FileLines {
    std::vector<std::size_t> places;
    std::vector<line_undo::Change> changes;
  };

  std::map<std::string, FileLines> OpenLines() {
    std::map<std::string, FileLines> by_file;
    for (std::size_t place = 0; place < entry_.steps.size(); ++place) {
      const Step& step = entry_.steps[place];
      if (step.kind != kLine || !IsToUndo(place)) {
        continue;
      }
      if (const auto change = ChangeOf(place)) {
        FileLines& lines = by_file[step.Value("file")];
        lines.places.push_back(place);
        lines.changes.push_back(*change);
      }
    }
    return by_file;
  }

  // Nothing when its texts can't be read.
  std::optional<line_undo::Change> ChangeOf(std::size_t place) {
    try {
      return line_undo::FromStep(entry_.steps[place]);
    } catch (const mgr_err::Error& error) {
      if (error.type() != "db") {
        recovered_.failed.push_back(error.what());
        return std::nullopt;
      }
    }
    GiveUp(place, "was not sealed with this instance's key");
    return std::nullopt;
  }

  void UndoLines(const std::string& file, const FileLines& lines) {
    try {
      for (const std::string& name : line_undo::UndoInFile(file, lines.changes).left) {
        recovered_.left.push_back("line of " + name + " in " + file);
      }
      // A recovery that was killed may have put the file in place and not made it durable.
      file_steps::SyncDirectoryAt(file_steps::DirectoryOf(file), file);
    } catch (const mgr_err::Error& error) {
      recovered_.failed.push_back(error.what());
      return;
    }
    Settle(lines.places, kLine);
  }

  // From the note on the request counts as committed, also when its row is forgotten.
  void Finish() {
    const auto noted = [](const Step& step) { return step == CommittedStep(); };
    if (std::none_of(entry_.steps.begin(), entry_.steps.end(), noted)) {
      Note(dead_, {CommittedStep()});
    }
    for (const Step& step : entry_.steps) {
      try {
        KindOf(step).finish(step);
      } catch (const mgr_err::Error& error) {
        recovered_.failed.push_back(error.what());
      }
    }
  }

  // The calls that the process owed. An action that nobody offers any more is owed to nobody.
  void MakeCalls() {
    for (std::size_t place = 0; recovered_.committed && place < entry_.steps.size(); ++place) {
      const Step& step = entry_.steps[place];
      const bool call = step.kind == "call";
      if (!IsOpen(place) || (!call && step.kind != "command")) {
        continue;
      }
      if (!call) {
        due::QueueCommand(step.Value("line"));
      } else if (!TryCall(step)) {
        continue;
      }
      Settle({place}, {});
    }
  }

  // False for a call that stays owed; the others are made all the same.
  bool TryCall(const Step& step) {
    const std::string& action = step.Value("action");
    if (brisq_api::FindAction(action) == nullptr) {
      return true;
    }
    try {
      owed_call::Make(action, step.Value("params"));
    } catch (const mgr_err::Error& error) {
      const bool owed = owed_call::MayWorkLater(error);
      (owed ? recovered_.failed : recovered_.dropped)
          .push_back("action " + action + ": " + error.what());
      return !owed;
    } catch (const std::exception& error) {
      recovered_.dropped.push_back("action " + action + ": " + error.what());
    }
    return true;
  }

  bool IsRemoved() {
    try {
      Remove(dead_);
      return true;
    } catch (const mgr_err::Error& error) {
      recovered_.failed.push_back(error.what());
      return false;
    }
  }

  // The list of jobs keeps what stays for good.
  void TellJob() {
    std::string texts = job_ ? job_->changes : "";
    for (const auto& stays : {recovered_.left, recovered_.lost}) {
      for (const std::string& text : stays) {
        texts += Text(Step{"step", {{"name", text}, {"after.undone", "no"}}}) + "\n";
      }
    }
    if (!recovered_.left.empty() || !recovered_.lost.empty()) {
      job_table::SetChanges(recovered_.job, texts);
    }
  }

  Dead& dead_;
  Left& entry_;
  const std::optional<job_table::Job> job_;  // none before the first recovery
  std::optional<LaterJobs> later_;
  Recovered recovered_;
};

std::string Joined(const std::vector<std::string>& texts) {
  std::string joined;
  for (const std::string& text : texts) {
    joined += (joined.empty() ? "" : ", ") + text;
  }
  return joined;
}

}  // namespace

std::vector<Recovered> RecoverDead(const std::function<void(const Recovered&)>& before_removal) {
  Request request("recovery");
  mgr_db::ThreadConnection()->LockForWriting();
  job_table::Create();
  std::vector<Dead> dead = TakeDead();
  std::vector<EntryRecovery> recoveries(dead.begin(), dead.end());
  for (EntryRecovery& recovery : recoveries) {
    recovery.Run();
  }
  request.Commit();
  std::vector<Recovered> all;
  for (EntryRecovery& recovery : recoveries) {
    recovery.End(before_removal);
    all.push_back(recovery.recovered());
  }
  return all;
}

std::string Words(const Recovered& recovered) {
  const char* undid = recovered.failed.empty() ? "undid" : "did not undo all of";
  const char* finished = recovered.failed.empty() ? "finished" : "did not finish all of";
  std::string words = recovered.committed ? finished : undid;
  words += " job " + std::to_string(recovered.job) + " (" + recovered.request + " by " +
           recovered.who + ", " + recovered.started + "), whose process had died" +
           (recovered.committed ? " or could not finish it" : "");
  if (!recovered.left.empty()) {
    words += "; not undone, changed since: " + Joined(recovered.left);
  }
  if (!recovered.lost.empty()) {
    words += "; could not be undone: " + Joined(recovered.lost);
  }
  if (!recovered.dropped.empty()) {
    words += "; failed, and is not tried again: " + Joined(recovered.dropped);
  }
  if (!recovered.failed.empty()) {
    words += "; not yet, the next command tries it again: " + Joined(recovered.failed) +
             " (to give it up, remove " + mgr_file::ConcatPath(Folder(), recovered.entry) + ")";
  }
  return words;
}

}  // namespace journal
