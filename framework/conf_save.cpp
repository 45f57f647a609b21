#include "framework/conf_save.h"

#include <fcntl.h>

#include <cerrno>
#include <chrono>
#include <thread>
#include <utility>

#include "framework/forget_behind.h"
#include "framework/request.h"
#include "mgr_err.h"
#include "mgr_log.h"

namespace {

using Clock = std::chrono::steady_clock;

// An editor may take the old file away before it puts the new one there.
constexpr auto kGapOfEditors = std::chrono::milliseconds(200);
// From this size on a second thread pays.
constexpr off_t kLarge = off_t{8} << 20;
constexpr auto kPause = std::chrono::milliseconds(2);

mgr_log::Module log_channel("conf", "brisq");

}  // namespace

ConfSave::ConfSave(const std::string& path)
    : target_(safe_replace::Target::Resolve(path)), lock_(target_) {
  // What the request's last save has replaced makes room for the next.
  Request::CloseAtEnd({});
  SaveLeftover(Replacement::Slot::kFirst);
  SaveLeftover(Replacement::Slot::kSecond);
  lock_.NoteDone();
}

ConfSave::~ConfSave() { Abandon(); }

bool ConfSave::Abandon() noexcept {
  if (!current_ || finished_) return true;
  finished_ = true;
  if (placements_ == 1) return current_->TakeBack();
  // What is in place has taken over an edit that is nowhere else by now: it stays, and so does what
  // it pushed out, which may be a further edit.
  current_->LeaveOld();
  return false;
}

void ConfSave::SaveLeftover(Replacement::Slot slot) {
  const std::string name = safe_replace::TemporaryName(target_.name, slot);
  const ConfStamp left = StampOf(name);
  if (!left.exists) return;
  if (!lock_.LeftAnEdit(left)) return safe_replace::Sweep(target_, slot);
  const std::string kept = safe_replace::KeepAside(target_, slot);
  if (log_channel.Check(mgr_log::kWarning)) {
    log_channel.Write(mgr_log::kWarning,
                      "an edit of %s that a killed save had not taken over is kept as %s",
                      target_.path.c_str(), kept.c_str());
  }
}

ConfStamp ConfSave::StampOf(const std::string& name) const {
  struct stat info {};
  if (sys::Stat(target_.directory.get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0) {
    return ConfStamp::Of(info);
  }
  if (errno != ENOENT) sys::Fail("stat", target_.path);
  return {};
}

std::optional<ConfContent> ConfSave::Look(const ConfStamp& known) {
  struct stat info {};
  const Descriptor file = OpenRegular(target_.directory.get(), target_.name, target_.path, info);
  const ConfStamp now = file ? ConfStamp::Of(info) : ConfStamp{};
  const auto is_written = [&] {
    return file && WriterWatch(file.get()).state() == WriterWatch::State::kWritten;
  };
  if (now == known && !is_written()) return std::nullopt;
  return ReadWhenQuiet(target_.name, !known.exists);
}

ConfContent ConfSave::ReadWhenQuiet(const std::string& name, bool may_be_missing) {
  const Clock::time_point begin = Clock::now();
  for (;;) {
    ConfContent content = ReadAt(target_.directory.get(), name, target_.path);
    const auto waited = Clock::now() - begin;
    const bool gap = !content.stamp.exists && !may_be_missing && waited < kGapOfEditors;
    if (content.bytes && !gap) return content;
    if (!content.bytes && waited >= ConfWaitLimit()) {
      struct stat info {};
      sys::Stat(target_.directory.get(), name.c_str(), &info, 0);
      throw mgr_err::Error("locked", target_.path, BeingEdited(info));
    }
    std::this_thread::sleep_for(kPause);
  }
}

// The system's copy of what is about to be pushed out is given back: the new file's takes its place
// in memory, and left to the removal it would be a wait of its own. That of a small file goes
// first, as all of it is in our own memory: what the system has given back to a virtual machine's
// host comes again at 2 to 3 ms a MiB.
void ConfSave::WriteNew(Replacement& fresh, const ConfSnapshot& content, int old,
                        const struct stat& info) {
  std::optional<ForgetBehind> forget;
  if (old >= 0 && info.st_size >= kLarge) {
    forget.emplace(old, content.bytes);
  } else if (old >= 0) {
    ::posix_fadvise(old, 0, 0, POSIX_FADV_DONTNEED);
  }
  fresh.Write(content.pieces, [&](std::size_t bytes) {
    if (forget) forget->Written(bytes);
  });
  fresh.StartWriteBack();
  if (forget) forget->WrittenAll();
}

ConfSave::Outcome ConfSave::Publish(const ConfSnapshot& content, const ConfStamp& known,
                                    const std::function<void()>& first) {
  struct stat info {};
  Descriptor old = OpenRegular(target_.directory.get(), target_.name, target_.path, info);
  if (known.exists != static_cast<bool>(old)) return Outcome::kChanged;
  // What the round before last pushed out has been taken over by the last one.
  former_.reset();
  auto fresh = std::make_unique<Replacement>(target_, slot_, old.get(), info);
  WriteNew(*fresh, content, old.get(), info);
  if (first) first();
  fresh->Seal(old ? ConfStamp::Of(info) : ConfStamp{});
  auto watch = std::make_unique<WriterWatch>(old.get());
  if (watch->state() == WriterWatch::State::kWritten) return Outcome::kChanged;
  // An edit that has set size and time back shows in the change of status alone, and only until our
  // own exchange changes that.
  if (placements_ == 0 && old && StampOf(target_.name) != known) return Outcome::kChanged;
  lock_.NoteExchange(known, fresh->stamp());
  const Outcome outcome = fresh->Publish(known);
  if (outcome == Outcome::kChanged) return outcome;
  ++placements_;
  stamp_ = fresh->stamp();
  watch_ = std::move(watch);
  pushed_out_ = std::move(old);
  former_ = std::exchange(current_, std::move(fresh));
  slot_ =
      slot_ == Replacement::Slot::kFirst ? Replacement::Slot::kSecond : Replacement::Slot::kFirst;
  return outcome;
}

// True when what was pushed out is what was expected, and nobody is about to change it.
bool ConfSave::IsUndisturbed(const ConfStamp& known) const {
  const ConfStamp out = StampOf(current_->name());
  if (!out.SameContentAs(known) || watch_->Disturbed()) return false;
  if (watch_->state() == WriterWatch::State::kFree) return true;
  return WriterWatch(pushed_out_.get()).state() != WriterWatch::State::kWritten;
}

void ConfSave::SyncDirectory() {
  try {
    safe_replace::SyncDirectory(target_);
  } catch (...) {
    doubt_ = std::current_exception();
  }
}

std::optional<ConfContent> ConfSave::Replace(const ConfSnapshot& content, const ConfStamp& known,
                                             const std::function<void()>& first) {
  const Outcome outcome = Publish(content, known, first);
  if (outcome == Outcome::kChanged) return ReadWhenQuiet(target_.name, !known.exists);
  if (outcome == Outcome::kDone) {
    SyncDirectory();
    return std::nullopt;
  }
  bool undisturbed = IsUndisturbed(known);
  if (undisturbed) {
    SyncDirectory();
    // Who had found the old file before it was pushed out may have come to opening it by now.
    undisturbed = IsUndisturbed(known);
  }
  if (undisturbed) return std::nullopt;
  watch_.reset();
  ConfContent found = ReadWhenQuiet(current_->name(), false);
  found.stamp = stamp_;
  return found;
}

void ConfSave::Finish() {
  finished_ = true;
  struct stat info {};
  // The exchange has changed the new file's status; who writes into it from now on shows in size or
  // time of modification. A stamp that can't be had only means that the file is read once more.
  if (sys::Stat(target_.directory.get(), target_.name.c_str(), &info, 0) == 0) {
    const ConfStamp now = ConfStamp::Of(info);
    if (now.SameContentAs(stamp_)) stamp_ = now;
  }
  watch_.reset();
  former_.reset();
  current_.reset();
  Request::CloseAtEnd(std::move(pushed_out_));
  lock_.NoteDone();
  if (doubt_) std::rethrow_exception(doubt_);
}
