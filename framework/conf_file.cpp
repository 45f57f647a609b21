#include "framework/conf_file.h"

#include <fcntl.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

#include "framework/conf_lock.h"
#include "framework/conf_merge.h"
#include "framework/conf_scratch.h"
#include "framework/save_watch.h"
#include "mgr_err.h"

namespace {

constexpr auto kGapOfEditors = std::chrono::milliseconds(200);

std::shared_ptr<const ConfBytes> Joined(const ConfSnapshot& content) {
  std::size_t size = 0;
  for (const std::string_view piece : content.pieces) size += piece.size();
  auto bytes = std::make_shared<ConfBytes>();
  bytes->Reserve(size);
  for (const std::string_view piece : content.pieces) {
    std::copy(piece.begin(), piece.end(), bytes->End());
    bytes->Add(piece.size());
  }
  return bytes;
}

// As Joined, without a copy when all of it is changed lines: of a file that is new.
std::shared_ptr<const ConfBytes> Taken(ConfSnapshot&& content) {
  const bool whole =
      content.pieces.size() == 1 && content.pieces.front().data() == content.changed.get();
  if (!whole) return Joined(content);
  return std::make_shared<ConfBytes>(std::move(content.changed), content.pieces.front().size());
}

// An error that does not mean that nothing was changed.
std::exception_ptr Doubtful(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const mgr_err::Error& caught) {
    return std::make_exception_ptr(mgr_err::Error(
        caught.type(), caught.object(), caught.value() + "; the file was changed all the same"));
  } catch (...) {
    return error;
  }
}

}  // namespace

ConfFile::ConfFile(std::string path, std::shared_ptr<const ConfConfiguration> configuration,
                   std::shared_ptr<ConfScratch> scratch)
    : path_(std::move(path)),
      syntax_(configuration->Syntax()),
      scratch_(std::move(scratch)),
      users_{std::move(configuration)} {}

ConfFile::Key ConfFile::KeyOf(const std::string& path, const mgr_token::Params& syntax) {
  return {path, syntax.separator + syntax.comment};
}

void ConfFile::Join(const std::shared_ptr<const ConfConfiguration>& configuration) {
  const std::lock_guard lock(users_mutex_);
  if (std::find(users_.begin(), users_.end(), configuration) == users_.end()) {
    users_.push_back(configuration);
  }
}

void ConfFile::CallHooks(ConfCache::SaveReason reason) {
  std::unique_lock lock(users_mutex_);
  const auto users = users_;
  lock.unlock();
  for (const auto& configuration : users) {
    ConfRef ref(shared_from_this(), configuration);
    configuration->CallHook(ref, reason);
  }
}

ConfFile::Reading ConfFile::Read() const {
  std::shared_lock lock(mutex_);
  return {std::move(lock), document_};
}

ConfFile::Reading ConfFile::ReadCurrent() {
  Refresh();
  return Read();
}

void ConfFile::StartWork(Lock& lock, Work work) {
  work_ended_.wait(lock, [this] { return work_ == Work::kNone; });
  work_ = work;
}

void ConfFile::EndWork() {
  work_ = Work::kNone;
  work_ended_.notify_all();
}

ConfStamp ConfFile::StampNow() const {
  const auto kept = scratch_ ? scratch_->Find(path_) : std::nullopt;
  return kept ? kept->stamp : StampAt(path_);
}

bool ConfFile::IsCurrent() const {
  const ConfStamp now = StampNow();
  const std::shared_lock lock(mutex_);
  // A save takes over what others have changed, and who only reads need not wait for it.
  return document_ && ((settled_ && now == stamp_) || work_ == Work::kSaving);
}

void ConfFile::Refresh() {
  const std::int64_t began = RecentLook::Now();
  if (!IsCurrent()) ReadAnew();
  looked_.Renew(began);
}

void ConfFile::ReadAnew() {
  Lock lock(mutex_);
  work_ended_.wait(lock, [this] { return work_ != Work::kReading; });
  const bool settled = document_ && settled_;
  if ((document_ && work_ == Work::kSaving) || (settled && StampNow() == stamp_)) return;
  StartWork(lock, Work::kReading);
  try {
    lock.unlock();
    const ConfContent content = ReadFile();
    lock.lock();
    if (content.bytes) TakeOver(content);
  } catch (...) {
    if (!lock.owns_lock()) lock.lock();
    EndWork();
    throw;
  }
  EndWork();
}

ConfContent ConfFile::ReadFile() const {
  if (const auto kept = scratch_ ? scratch_->Find(path_) : std::nullopt) return *kept;
  const auto begin = std::chrono::steady_clock::now();
  for (;;) {
    ConfContent content = ReadAt(AT_FDCWD, path_, path_);
    const auto waited = std::chrono::steady_clock::now() - begin;
    // An editor may take the old file away before it puts the new one there.
    const bool gap = !content.stamp.exists && stamp_.exists && waited < kGapOfEditors;
    // Half of somebody's edit is never taken for the file; what was read before serves until the
    // edit is whole.
    if (!gap && (content.bytes || document_)) return content;
    if (!gap && waited >= ConfWaitLimit()) {
      struct stat info {};
      sys::Stat(AT_FDCWD, path_.c_str(), &info, 0);
      throw mgr_err::Error("locked", path_, BeingEdited(info));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

void ConfFile::TakeOver(const ConfContent& content) {
  ++version_;
  document_ = std::make_shared<ConfDocument>(content.bytes, syntax_);
  stamp_ = content.stamp;
  settled_ = content.settled;
  ApplyWaiting();
}

void ConfFile::ApplyWaiting() {
  std::deque<std::shared_ptr<Waiting>> kept;
  std::size_t saving = 0;
  for (std::size_t at = 0; at < waiting_.size(); ++at) {
    const std::shared_ptr<Waiting>& waiting = waiting_[at];
    try {
      ApplyOne(*waiting);
      kept.push_back(waiting);
      if (at < saving_) ++saving;
    } catch (...) {
      waiting->error = std::current_exception();
      waiting->made = false;
      waiting->settled = true;
    }
  }
  waiting_ = std::move(kept);
  saving_ = saving;
}

void ConfFile::ApplyOne(Waiting& waiting) {
  waiting.change.Apply(document_);
  if (!waiting.journal.note || !waiting.change.Effective()) return;
  try {
    waiting.journal.note(waiting.change, *document_);
  } catch (...) {
    waiting.change.Undo(*document_);
    throw;
  }
}

std::shared_ptr<ConfFile::Waiting> ConfFile::Apply(ConfChange&& change, Journal&& journal,
                                                   Look look) {
  if (look == Look::kNow || looked_.IsOld()) Refresh();
  auto waiting = std::make_shared<Waiting>(std::move(change), std::move(journal));
  const Lock lock(mutex_);
  ++version_;
  ApplyOne(*waiting);
  waiting_.push_back(waiting);
  return waiting;
}

void ConfFile::Save(const std::shared_ptr<Waiting>& waiting) {
  Lock lock(mutex_);
  work_ended_.wait(lock, [&] { return waiting->settled || work_ == Work::kNone; });
  if (!waiting->settled) Lead(lock);
  if (waiting->error) std::rethrow_exception(waiting->error);
}

std::exception_ptr ConfFile::FirstErrorOf(
    const std::vector<std::shared_ptr<Waiting>>& changes) const {
  const std::shared_lock lock(mutex_);
  const auto first = std::find_if(changes.begin(), changes.end(),
                                  [](const auto& waiting) { return waiting->error != nullptr; });
  return first == changes.end() ? nullptr : (*first)->error;
}

void ConfFile::SaveAll() {
  Lock lock(mutex_);
  work_ended_.wait(lock, [&] { return work_ == Work::kNone; });
  if (!waiting_.empty()) Lead(lock);
}

std::shared_ptr<ConfFile::Waiting> ConfFile::ApplyReverse(const Waiting& waiting) {
  std::optional<ConfChange> reverse;
  {
    const std::shared_lock lock(mutex_);
    if (waiting.made) reverse = waiting.change.Reverse();
  }
  return reverse ? Apply(std::move(*reverse)) : nullptr;
}

bool ConfFile::HasWaiting() const {
  const std::shared_lock lock(mutex_);
  return !waiting_.empty();
}

// Refuses what a real save would refuse before it writes.
void ConfFile::SaveIntoScratch() {
  saving_ = waiting_.size();
  try {
    safe_replace::Target::Resolve(path_);
  } catch (...) {
    return FailTaken(std::current_exception(), false);
  }
  stamp_ = scratch_->Keep(path_, document_->Print());
  settled_ = true;
  Settle(nullptr, true);
}

void ConfFile::Lead(Lock& lock) {
  if (scratch_) return SaveIntoScratch();
  StartWork(lock, Work::kSaving);
  saving_ = waiting_.size();
  lock.unlock();
  std::unique_ptr<ConfSave> save;
  ConfCache::SaveReason reason = ConfCache::srWritten;
  bool in_place = true;
  try {
    save = std::make_unique<ConfSave>(path_);
    reason = WriteOut(lock, *save);
  } catch (...) {
    in_place = save && !save->Abandon();
    if (!lock.owns_lock()) lock.lock();
    FailTaken(std::current_exception(), in_place);
  }
  save.reset();
  EndWork();
  if (!in_place) return;
  lock.unlock();
  CallHooks(reason);
  lock.lock();
}

std::set<std::shared_ptr<journal::Entry>> ConfFile::JournalsOfTaken() const {
  std::set<std::shared_ptr<journal::Entry>> journals;
  for (std::size_t at = 0; at < saving_; ++at) {
    if (waiting_[at]->journal.entry) journals.insert(waiting_[at]->journal.entry);
  }
  return journals;
}

ConfCache::SaveReason ConfFile::WriteOut(Lock& lock, ConfSave& save) {
  // What is at the path since content of ours was put there, and what `found` was made from.
  std::optional<ConfSnapshot> at_path;
  std::optional<ConfSnapshot> origin;
  bool taken_over = false;
  const ConfStamp based_on = stamp_;
  std::optional<ConfContent> found = save.Look(settled_ ? stamp_ : ConfStamp{});
  for (;;) {
    lock.lock();
    if (found) TakeIn(*found, origin);
    taken_over = taken_over || found;
    saving_ = waiting_.size();
    // Once the file has been replaced there is something to write even when all that waits has been
    // refused: what the replacement pushed out must come back.
    const std::size_t before = save.Placements();
    if (before == 0 && !AnyEffective()) break;
    ConfSnapshot content = document_->Snapshot();
    const auto journals = JournalsOfTaken();
    lock.unlock();
    found = save.Replace(content, stamp_, [&] {
      for (const auto& entry : journals) entry->Sync();
    });
    if (!found) {
      FinishWritten(lock, save, std::move(content));
      SaveWatch::Saved(path_, taken_over ? ConfStamp{} : based_on, stamp_);
      return ConfCache::srWritten;
    }
    origin = std::exchange(at_path, std::nullopt);
    if (save.Placements() > before) {
      at_path = std::move(content);
    } else if (before > 0) {
      at_path = ConfSnapshot{found->bytes, nullptr, {found->bytes->View()}};
    }
  }
  Settle(nullptr, true);
  return taken_over ? ConfCache::srTakenOver : ConfCache::srNothing;
}

void ConfFile::TakeIn(const ConfContent& found, const std::optional<ConfSnapshot>& origin) {
  ++version_;
  if (!origin) return TakeOver(found);
  // It was made from content in which the changes that wait are made already.
  const mgr_token::Params& syntax = document_->Syntax();
  MergeEdit(*document_, ConfDocument(Joined(*origin), syntax), ConfDocument(found.bytes, syntax));
  stamp_ = found.stamp;
}

void ConfFile::FinishWritten(Lock& lock, ConfSave& save, ConfSnapshot&& written) {
  // The file is changed now, whatever becomes of the rest: an error here undoes nothing.
  std::exception_ptr error;
  try {
    save.Finish();
  } catch (...) {
    error = std::current_exception();
  }
  lock.lock();
  stamp_ = save.stamp();
  settled_ = true;
  Settle(error, true);
  RenewWorn(std::move(written));
}

bool ConfFile::AnyEffective() const {
  return std::any_of(waiting_.begin(), waiting_.end(),
                     [](const auto& waiting) { return waiting->change.Effective(); });
}

void ConfFile::Settle(const std::exception_ptr& error, bool made) {
  for (; saving_ > 0; --saving_) {
    waiting_.front()->error = error;
    waiting_.front()->made = made;
    waiting_.front()->settled = true;
    waiting_.pop_front();
  }
}

void ConfFile::FailTaken(const std::exception_ptr& error, bool in_place) noexcept {
  // The file may hold an edit by somebody else that the save had come upon.
  settled_ = false;
  if (in_place) return Settle(Doubtful(error), true);
  ++version_;
  for (auto waiting = waiting_.rbegin(); waiting != waiting_.rend(); ++waiting) {
    (*waiting)->change.Undo(*document_);
  }
  Settle(error, false);
  ApplyWaiting();
}

// While nothing waits the document is what was written.
void ConfFile::RenewWorn(ConfSnapshot&& written) {
  if (!waiting_.empty() || !document_->IsWorn()) return;
  ++version_;
  document_ = std::make_shared<ConfDocument>(Taken(std::move(written)), syntax_);
}
