#include "framework/journal_recovery.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <utility>

#include "brisq_api.h"
#include "framework/database.h"
#include "framework/due.h"
#include "framework/file_swap.h"
#include "framework/job_table.h"
#include "framework/line_undo.h"
#include "framework/modules.h"
#include "framework/request.h"
#include "framework/sys.h"
#include "framework/user_dir.h"
#include "mgr_err.h"

namespace journal {

namespace {

constexpr const char* kLine = "line";
constexpr const char* kSwap = "swap";

// True unless somebody else has put something there.
bool UndoSystemDir(const Step& step) {
  const std::string path = step.Value("path");
  if (sys::RmDir(AT_FDCWD, path.c_str()) == 0 || errno == ENOENT) {
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

void UndoStep(const Step& step, Recovered& recovered) {
  try {
    if (KindOf(step).undo(step)) {
      recovered.files_undone = recovered.files_undone || step.kind == kSwap;
    } else {
      recovered.left.push_back(step.Value("what"));
    }
  } catch (const mgr_err::Error& error) {
    (IsNotSafe(error) ? recovered.left : recovered.failed).push_back(error.what());
  }
}

void UndoLines(const std::vector<Step>& steps, Recovered& recovered) {
  std::map<std::string, std::vector<line_undo::Change>> by_file;
  for (const Step& step : steps) {
    if (step.kind == kLine) {
      by_file[step.Value("file")].push_back(line_undo::FromStep(step));
    }
  }
  for (const auto& [file, changes] : by_file) {
    const line_undo::Outcome outcome = line_undo::UndoInFile(file, changes);
    recovered.lines_undone = recovered.lines_undone || outcome.changed;
    for (const std::string& name : outcome.left) {
      recovered.left.push_back("line of " + name + " in " + file);
    }
  }
}

void Undo(const Left& left, Recovered& recovered) {
  std::for_each(left.steps.rbegin(), left.steps.rend(),
                [&](const Step& step) { UndoStep(step, recovered); });
  try {
    UndoLines(left.steps, recovered);
  } catch (const mgr_err::Error& error) {
    recovered.failed.push_back(error.what());
  }
}

void Finish(const Left& left, Recovered& recovered) {
  for (const Step& step : left.steps) {
    try {
      KindOf(step).finish(step);
    } catch (const mgr_err::Error& error) {
      recovered.failed.push_back(error.what());
    }
  }
}

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

Recovered RecoverOne(const Left& left) {
  const auto job = job_table::OfEntry(left.id);
  Recovered recovered;
  recovered.request = left.head.Value("name");
  recovered.who = left.head.Value("who");
  recovered.started = left.head.Value("started");
  recovered.committed = IsCommitted(left, job);
  if (recovered.committed) {
    Finish(left, recovered);
  } else {
    Undo(left, recovered);
  }
  recovered.job = NumberOf(left, job);
  return recovered;
}

// The calls that the process owed. An action that nobody offers any more is owed to nobody.
void MakeCalls(const Left& left) {
  for (const Step& step : left.steps) {
    if (step.kind == "call" && brisq_api::FindAction(step.Value("action")) != nullptr) {
      brisq_api::InternalCall(step.Value("action"), step.Value("params"));
    } else if (step.kind == "command") {
      due::QueueCommand(step.Value("line"));
    }
  }
}

std::string Joined(const std::vector<std::string>& texts) {
  std::string joined;
  for (const std::string& text : texts) {
    joined += (joined.empty() ? "" : ", ") + text;
  }
  return joined;
}

}  // namespace

std::vector<Recovered> RecoverDead(const std::function<void(const Recovered&)>& before_removal) {
  std::vector<Recovered> all;
  Request request("recovery");
  mgr_db::ThreadConnection()->LockForWriting();
  job_table::Create();
  const std::vector<Dead> dead = TakeDead();
  for (const Dead& one : dead) {
    all.push_back(RecoverOne(one.entry));
  }
  request.Commit();
  for (std::size_t i = 0; i < dead.size(); ++i) {
    if (all[i].committed) {
      MakeCalls(dead[i].entry);
    }
    before_removal(all[i]);
    if (all[i].failed.empty()) {
      Remove(dead[i]);
    }
  }
  return all;
}

std::string Words(const Recovered& recovered) {
  std::string words = recovered.committed ? "finished" : "undid";
  words += " job " + std::to_string(recovered.job) + " (" + recovered.request + " by " +
           recovered.who + ", " + recovered.started + "), whose process had died";
  if (!recovered.left.empty()) {
    words += "; not undone, changed since: " + Joined(recovered.left);
  }
  if (!recovered.failed.empty()) {
    words += "; not yet, it is tried again: " + Joined(recovered.failed);
  }
  return words;
}

}  // namespace journal
