#include "framework/conf_save.h"

#include <fcntl.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "mgr_err.h"

namespace {

using Clock = std::chrono::steady_clock;

}  // namespace

ConfSave::ConfSave(const std::string& path)
    : target_(safe_replace::Target::Resolve(path)), lock_(target_) {
  safe_replace::Sweep(target_, Replacement::Slot::kFirst);
  safe_replace::Sweep(target_, Replacement::Slot::kSecond);
}

ConfSave::~ConfSave() {
  // A save that fails after it has put its content in place: what it pushed out, which holds
  // somebody's edit that nobody has taken over, comes back.
  if (current_ && !finished_) current_->TakeBack();
}

ConfStamp ConfSave::StampOfTarget() const {
  struct stat info {};
  if (sys::Stat(target_.directory.get(), target_.name.c_str(), &info, 0) == 0) {
    return ConfStamp::Of(info);
  }
  if (errno != ENOENT) sys::Fail("stat", target_.path);
  return {};
}

std::optional<ConfContent> ConfSave::Look(const ConfStamp& known) {
  struct stat info {};
  const sys::FileDescriptor file =
      OpenRegular(target_.directory.get(), target_.name, target_.path, info);
  const ConfStamp now = file ? ConfStamp::Of(info) : ConfStamp{};
  if (now == known && (!file || !IsBeingWritten(file.get()))) return std::nullopt;
  return ReadWhenQuiet(target_.name);
}

ConfContent ConfSave::ReadWhenQuiet(const std::string& name) {
  const auto limit = ConfWaitLimit();
  const Clock::time_point end = Clock::now() + limit;
  for (;;) {
    ConfContent content = ReadAt(target_.directory.get(), name, target_.path);
    if (content.bytes) return content;
    if (Clock::now() >= end) {
      struct stat info {};
      sys::Stat(target_.directory.get(), name.c_str(), &info, 0);
      throw mgr_err::Error(
          "locked", target_.path,
          "is being edited: " + DescribeWriters(info) + " has it open for writing");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

ConfSave::Replacement::Outcome ConfSave::Publish(const ConfSnapshot& content,
                                                 const ConfStamp& known) {
  struct stat info {};
  const sys::FileDescriptor old =
      OpenRegular(target_.directory.get(), target_.name, target_.path, info);
  if (known.exists != static_cast<bool>(old)) return Replacement::Outcome::kChanged;
  // What the round before last pushed out has been taken over by the last one.
  former_.reset();
  auto fresh = std::make_unique<Replacement>(target_, slot_, old.get(), info);
  fresh->Write(content.pieces);
  fresh->Seal(old ? ConfStamp::Of(info) : ConfStamp{});
  const Replacement::Outcome outcome = fresh->Publish(known);
  if (outcome == Replacement::Outcome::kChanged) return outcome;
  stamp_ = fresh->stamp();
  former_ = std::move(current_);
  current_ = std::move(fresh);
  slot_ =
      slot_ == Replacement::Slot::kFirst ? Replacement::Slot::kSecond : Replacement::Slot::kFirst;
  return outcome;
}

bool ConfSave::PushedOut(const ConfStamp& known) const {
  struct stat info {};
  const sys::FileDescriptor old =
      OpenRegular(target_.directory.get(), current_->name(), target_.path, info);
  return old && ConfStamp::Of(info).SameContentAs(known) && !IsBeingWritten(old.get());
}

std::optional<ConfContent> ConfSave::Replace(const ConfSnapshot& content, const ConfStamp& known) {
  const Replacement::Outcome outcome = Publish(content, known);
  if (outcome == Replacement::Outcome::kChanged) return ReadWhenQuiet(target_.name);
  if (outcome == Replacement::Outcome::kDone || PushedOut(known)) return std::nullopt;
  ConfContent pushed_out = ReadWhenQuiet(current_->name());
  if (pushed_out.stamp.SameContentAs(known)) return std::nullopt;
  pushed_out.stamp = stamp_;
  return pushed_out;
}

void ConfSave::Finish() {
  // The exchange has changed the new file's status; who writes into it from now on shows in size or
  // time of modification.
  const ConfStamp now = StampOfTarget();
  if (now.SameContentAs(stamp_)) stamp_ = now;
  finished_ = true;
  safe_replace::SyncDirectory(target_);
  former_.reset();
  current_.reset();
}
