#include "framework/request.h"

#include <algorithm>
#include <mutex>
#include <optional>
#include <utility>

#include "framework/acting_user.h"
#include "framework/conf_defer.h"
#include "framework/doubts.h"
#include "framework/due.h"
#include "framework/owed_call.h"
#include "framework/random_hex.h"
#include "framework/rehearsal.h"
#include "framework/user_dir.h"
#include "framework/utc.h"
#include "mgr_err.h"
#include "mgr_log.h"

namespace {

mgr_log::Module request_log("request", "brisq");

constexpr std::size_t kAnnouncedTogether = 16;  // jobs

thread_local Request* current_request = nullptr;

// Requests that began keep the hooks that they began with.
struct HooksInUse {
  std::mutex mutex;
  std::shared_ptr<const Request::DatabaseHooks> hooks = std::make_shared<Request::DatabaseHooks>();
};

HooksInUse& InUse() {
  static HooksInUse in_use;
  return in_use;
}

std::shared_ptr<const Request::DatabaseHooks> CurrentHooks() {
  std::lock_guard guard(InUse().mutex);
  return InUse().hooks;
}

void CallIfSet(const std::function<void()>& hook) {
  if (hook) {
    hook();
  }
}

mgr_err::Error Misuse(const std::string& request, const std::string& rule) {
  return mgr_err::Error("internal", "request " + request, rule);
}

}  // namespace

Request::Request(std::string name)
    : id_(RandomHex()),
      name_(std::move(name)),
      who_(ActingUser()),
      started_(std::chrono::system_clock::now()),
      database_(CurrentHooks()) {
  if (current_request != nullptr) {
    throw Misuse(name_, "begun inside of request " + current_request->name_);
  }
  current_request = this;
}

Request::~Request() { Rollback(); }

Request* Request::Current() noexcept { return current_request; }

void Request::KeepCurrentEntry() noexcept {
  if (current_request != nullptr) {
    current_request->KeepEntry();
  }
}

void Request::SetDatabaseHooks(DatabaseHooks hooks) {
  auto shared = std::make_shared<const DatabaseHooks>(std::move(hooks));
  std::lock_guard guard(InUse().mutex);
  InUse().hooks = std::move(shared);
}

void Request::Commit() {
  if (state_ != State::kOpen || current_request != this) {
    throw Misuse(name_, "has ended or belongs to another thread");
  }
  state_ = State::kCommitting;
  try {
    DoJobs();
    CommitDatabase();
  } catch (...) {
    Rollback();
    throw;
  }
  if (Rehearsal* rehearsal = Rehearsal::Current()) {
    NoteCallsAfterCommit(*rehearsal);
    return End();
  }
  committed_ = true;
  for (mgr_job::Job* job : jobs_) {
    job->Forget();
  }
  End();
  MakeCallsAfterCommit();
  CloseEntry();
}

void Request::Rollback() noexcept {
  if (state_ != State::kOpen && state_ != State::kCommitting) {
    return;
  }
  state_ = State::kUndoing;
  unsynced_.Clear();
  UndoSteps();
  RollbackDatabase();
  End();
  CloseEntry();
}

void Request::OnRollback(std::string what, std::function<void()> undo) {
  if (state_ != State::kUndoing) {
    done_.push_back({std::move(what), std::move(undo)});
  }
}

void Request::AfterCommit(std::string what, std::function<void()> call, Failing failing) {
  after_commit_.push_back({std::move(what), std::move(call), failing});
}

void Request::QueueCommand(std::string command) { commands_.push_back(std::move(command)); }

std::shared_ptr<journal::Entry> Request::JournalEntry() {
  if (state_ == State::kUndoing || journal::Folder().empty() || Rehearsal::Current() != nullptr) {
    return nullptr;
  }
  if (!entry_) {
    entry_ = std::make_shared<journal::Entry>(
        id_,
        journal::Step{"request", {{"name", name_}, {"who", who_}, {"started", UtcText(started_)}}});
  }
  return entry_;
}

void Request::NoteSteps(const std::vector<journal::Step>& steps, bool durable) {
  if (const auto entry = steps.empty() ? nullptr : JournalEntry()) {
    entry->Write(steps, durable);
  }
}

void Request::SyncBeforeCommit(int directory, const std::string& path) {
  unsynced_.Add(directory, path);
}

void Request::AddNote(std::string note) { notes_.push_back(std::move(note)); }

void Request::BeginDatabase() {
  if (!transaction_) {
    CallIfSet(database_->begin);
    transaction_ = true;
  }
}

void Request::Enter(mgr_job::Job& job) {
  if (state_ == State::kUndoing) {
    throw Misuse(name_, "takes no job while it is rolled back");
  }
  jobs_.push_back(&job);
}

void Request::Leave(const mgr_job::Job& job) noexcept {
  // The job whose construction failed is the last one, or followed by few that it made itself.
  const auto last = std::find(jobs_.rbegin(), jobs_.rend(), &job);
  if (last != jobs_.rend()) {
    jobs_.erase(std::next(last).base());
  }
}

void Request::DoJobs() {
  std::optional<user_dir::KeepWay> way;
  // By index: a job may add others behind it.
  for (std::size_t i = 0; i < jobs_.size(); ++i) {
    mgr_job::Job* job = jobs_[i];
    if (Rehearsal* rehearsal = Rehearsal::Current()) {
      rehearsal->Note(job->Rehearse());
      continue;
    }
    Announce(i);
    // What a job that tells no steps does to folders nobody knows.
    if (announced_ <= i) {
      way.reset();
    } else if (!way) {
      way.emplace();
    }
    Step step{mgr_job::ClassOf(*job), [job] { job->Undo(); }};
    job->Do();
    done_.push_back(std::move(step));
  }
  unsynced_.Sync();
}

// The journal gets the steps of this job, and with them, in one write, those of a few behind it
// that know theirs as well: a job must find things as they were when its steps were noted. They
// stand there in the order of the jobs.
void Request::Announce(std::size_t first) {
  if (announced_ <= first) {
    NoteJobs(first);
  }
  if (std::exchange(notes_undurable_, false)) {
    entry_->Sync();
  }
}

void Request::NoteJobs(std::size_t first) {
  const user_dir::KeepWay way;
  announced_ = first;
  const std::size_t end = std::min(jobs_.size(), first + kAnnouncedTogether);
  while (announced_ < end && jobs_[announced_]->Announce()) {
    ++announced_;
    notes_undurable_ = entry_ != nullptr;
  }
}

void Request::AnnounceJobs() {
  if (state_ == State::kOpen && Rehearsal::Current() == nullptr) {
    NoteJobs(announced_);
  }
}

void Request::CloseAtEnd(Descriptor file) noexcept {
  if (current_request != nullptr) {
    current_request->closing_ = std::move(file);
  }
}

// From here on a process that finds the entry brings the request to its end instead of undoing it.
void Request::MarkCommitted() {
  if (!entry_ || !entry_->IsOpen()) {
    return;
  }
  if (transaction_ && database_->mark) {
    entry_->Sync();
    database_->mark(*this);
  } else {
    entry_->Write({journal::CommittedStep()}, true);
  }
}

void Request::CommitDatabase() {
  for (const std::string& command : commands_) {
    NoteSteps({{"command", {{"line", command}}}}, false);
  }
  MarkCommitted();
  if (transaction_) {
    CallIfSet(database_->commit);
    transaction_ = false;
  }
}

// Lines are taken back by one save for all, made before the journal's entry goes.
void Request::UndoSteps() noexcept {
  DeferSaves lines(DeferSaves::Between::kNever);
  const auto save = [&] { doubts::NoteInRequest([&] { lines.Save(); }); };
  for (std::size_t number = done_.size(); number > 0; --number) {
    const Step& step = done_[number - 1];
    const std::string what = "undo of step " + std::to_string(number) + " (" + step.what + ")";
    undone_ = UndoStep(step, what, save) && undone_;
  }
  undone_ = Attempt({"", save}, "save of what was undone") && undone_;
}

// A line that looks changed since may be what later steps have made of it, through another view of
// the file: that they are taken back shows there once it is saved.
bool Request::UndoStep(const Step& step, const std::string& what,
                       const std::function<void()>& save) noexcept {
  try {
    step.call();
    return true;
  } catch (const mgr_err::Error& error) {
    if (error.type() != "later") {
      Problem(what, error.what());
      return false;
    }
  } catch (const std::exception& error) {
    Problem(what, error.what());
    return false;
  } catch (...) {
    Problem(what, "an exception of unknown kind");
    return false;
  }
  return Attempt({"", save}, what) && Attempt(step, what);
}

void Request::RollbackDatabase() noexcept {
  if (transaction_) {
    Attempt({"", [this] { CallIfSet(database_->rollback); }}, "rollback of the database");
    transaction_ = false;
  }
}

// What could not be taken back stays in the journal, for the next start.
void Request::CloseEntry() noexcept {
  if (entry_ && undone_) {
    entry_->Remove(!committed_);
  }
  entry_.reset();
}

void Request::End() noexcept {
  state_ = State::kEnded;
  current_request = nullptr;
  closing_.Close();
  done_.clear();
  const std::vector<mgr_job::Job*> jobs = std::exchange(jobs_, {});
  std::for_each(jobs.rbegin(), jobs.rend(), [](mgr_job::Job* job) { delete job; });
}

void Request::MakeCallsAfterCommit() noexcept {
  for (const Step& step : std::exchange(after_commit_, {})) {
    MakeCall(step);
  }
  for (const std::string& command : std::exchange(commands_, {})) {
    Attempt({command, [&command] { due::QueueCommand(command); }}, "queueing of " + command);
  }
}

void Request::MakeCall(const Step& step) noexcept {
  const std::string what = "after the commit: " + step.what;
  try {
    step.call();
  } catch (const std::exception& error) {
    std::string reason = error.what();
    if (StaysOwed(step, error)) {
      KeepEntry();
      owes_ = true;
      reason += "; the change is stored, and this is still to be done: the next command tries it";
    }
    Problem(what, reason);
  } catch (...) {
    Problem(what, "an exception of unknown kind");
  }
}

// Only what the journal holds can be made by a later process.
bool Request::StaysOwed(const Step& step, const std::exception& error) const {
  const auto* known = dynamic_cast<const mgr_err::Error*>(&error);
  return step.failing == Failing::kStaysOwed && entry_ && entry_->IsOpen() && known != nullptr &&
         owed_call::MayWorkLater(*known);
}

void Request::NoteCallsAfterCommit(Rehearsal& rehearsal) {
  for (const Step& step : after_commit_) {
    rehearsal.Note("after the commit: " + step.what);
  }
  for (const std::string& command : commands_) {
    rehearsal.Note("command " + command + " run");
  }
}

bool Request::Attempt(const Step& step, const std::string& what) noexcept {
  try {
    step.call();
    return true;
  } catch (const std::exception& error) {
    Problem(what, error.what());
  } catch (...) {
    Problem(what, "an exception of unknown kind");
  }
  return false;
}

void Request::Problem(const std::string& what, const std::string& reason) noexcept {
  if (request_log.Check(mgr_log::kError)) {
    request_log.Write(mgr_log::kError, "%s: %s failed: %s", name_.c_str(), what.c_str(),
                      reason.c_str());
  }
  notes_.push_back(what + " failed: " + reason);
}
