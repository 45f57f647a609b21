#include "framework/conf_stamp.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <limits>
#include <optional>

#include "framework/conf_mapping.h"
#include "framework/in_two.h"
#include "framework/local_file.h"
#include "framework/writer_watch.h"
#include "mgr_err.h"

namespace {

constexpr std::int64_t kSecond = 1'000'000'000;

std::int64_t Nanoseconds(const struct timespec& time) noexcept {
  return std::int64_t{time.tv_sec} * kSecond + time.tv_nsec;
}

// A finer clock than the one that is asked, or one of another machine, is less ahead than this.
constexpr std::int64_t kAhead = 2 * kSecond;
// Who writes in place pauses less than this within one edit, as a rule; used where the system can't
// tell whether anybody writes.
constexpr std::int64_t kPauseOfWriters = 100'000'000;

// Nanoseconds since the last change; large when a clock has been set back since.
std::int64_t Age(const ConfStamp& stamp) noexcept {
  struct timespec now {};
  ::clock_gettime(CLOCK_REALTIME, &now);
  const std::int64_t age = Nanoseconds(now) - stamp.changed;
  return age >= 0 ? age : std::numeric_limits<std::int64_t>::max();
}

const char* KindOf(const struct stat& info) {
  if (S_ISDIR(info.st_mode)) return "a directory";
  if (S_ISFIFO(info.st_mode)) return "a FIFO";
  if (S_ISSOCK(info.st_mode)) return "a socket";
  return "a device";
}

// From this size on a second thread pays.
constexpr off_t kReadInHalves = off_t{8} << 20;

// File systems cut times down to what they can keep: the noughts at a time's end tell the steps.
std::int64_t StepOf(std::int64_t time) noexcept {
  std::int64_t step = 1;
  while (step < kSecond && time % (step * 10) == 0) step *= 10;
  // Some keep even seconds only.
  return step < kSecond ? step : 2 * kSecond;
}

// For what is read from now on.
std::int64_t ClockOf(int fd) noexcept { return FileClock() - (IsLocalFile(fd) ? 0 : kClockAside); }

// Reads up to `end`, or to the end of the file or an error: what is missing then is found by those
// who read on.
std::size_t ReadPart(int fd, char* to, std::size_t begin, std::size_t end) noexcept {
  while (begin < end) {
    const ssize_t got = ::pread(fd, to + begin, end - begin, static_cast<off_t>(begin));
    if (got <= 0) break;
    begin += static_cast<std::size_t>(got);
  }
  return begin;
}

// Reads the beginning of a file by two threads: most of the time goes into touching fresh memory.
// What a growing or shrinking file makes of this is for the caller to find.
void ReadHalves(int fd, std::size_t size, ConfBytes& bytes) {
  char* const to = bytes.End();
  const std::size_t half = size / 2;
  std::size_t lower = 0;
  std::size_t upper = 0;
  InTwo([&] { lower = ReadPart(fd, to, 0, half); }, [&] { upper = ReadPart(fd, to, half, size); });
  bytes.Add(lower == half ? upper : lower);
}

// Without bytes where the file must be read instead.
ConfContent MapContent(int fd, const ConfStamp& opened) {
  const std::int64_t clock = ClockOf(fd);
  auto mapping = ConfMapping::Of(fd);
  if (!mapping) return {};
  ConfContent content{mapping->stamp(), nullptr, IsSettled(opened, clock)};
  content.settled = content.settled && content.stamp == opened;
  content.bytes = std::make_shared<ConfBytes>(std::move(mapping));
  return content;
}

void RequireRegular(const struct stat& info, const std::string& path) {
  if (S_ISREG(info.st_mode)) return;
  throw mgr_err::Error("file", path,
                       std::string("not a regular file but ") + KindOf(info) +
                           "; put the file there or set another path");
}

}  // namespace

ConfStamp ConfStamp::Of(const struct stat& info) noexcept {
  ConfStamp stamp;
  stamp.exists = true;
  stamp.device = info.st_dev;
  stamp.inode = info.st_ino;
  stamp.size = info.st_size;
  stamp.modified = Nanoseconds(info.st_mtim);
  stamp.changed = Nanoseconds(info.st_ctim);
  return stamp;
}

bool ConfStamp::SameContentAs(const ConfStamp& other) const noexcept {
  ConfStamp renamed = other;
  renamed.changed = changed;
  return *this == renamed;
}

ConfStamp StampAt(const std::string& path) {
  struct stat info {};
  if (sys::Stat(AT_FDCWD, path.c_str(), &info, 0) == 0) return ConfStamp::Of(info);
  if (errno != ENOENT) sys::Fail("stat", path);
  return {};
}

std::int64_t FileClock() noexcept {
  struct timespec now {};
  ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
  return Nanoseconds(now);
}

bool IsSettled(const ConfStamp& stamp, std::int64_t clock) noexcept {
  const std::int64_t step = StepOf(stamp.changed);
  return stamp.changed < clock - clock % step || stamp.changed > clock + kAhead;
}

Descriptor OpenRegular(int directory, const std::string& name, const std::string& path,
                       struct stat& info) {
  // Opening a FIFO or a device may wait or have effects of its own; O_NONBLOCK keeps a FIFO from
  // it, and the rest is refused before it is opened.
  if (sys::Stat(directory, name.c_str(), &info, 0) == 0) {
    RequireRegular(info, path);
  } else if (errno != ENOENT) {
    sys::Fail("stat", path);
  }
  Descriptor file(sys::Open(directory, name.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY));
  if (!file) {
    if (errno == ENOENT) return file;
    sys::Fail("open", path);
  }
  if (sys::FStat(file.get(), &info) != 0) sys::Fail("fstat", path);
  RequireRegular(info, path);
  return file;
}

ConfContent ReadContent(int fd, const std::string& path) {
  const std::int64_t clock = ClockOf(fd);
  struct stat before {};
  struct stat after {};
  if (sys::FStat(fd, &before) != 0) sys::Fail("fstat", path);
  auto bytes = std::make_shared<ConfBytes>();
  // One byte more than expected tells the end without a further call.
  bytes->Reserve(static_cast<std::size_t>(before.st_size) + 1);
  if (before.st_size >= kReadInHalves) {
    ReadHalves(fd, static_cast<std::size_t>(before.st_size), *bytes);
    if (::lseek(fd, static_cast<off_t>(bytes->size()), SEEK_SET) < 0) sys::Fail("lseek", path);
  }
  for (;;) {
    const ssize_t got = sys::Read(fd, bytes->End(), bytes->Room());
    if (got < 0) sys::Fail("read", path);
    if (got == 0) break;
    bytes->Add(static_cast<std::size_t>(got));
    if (bytes->Room() == 0) bytes->Reserve(bytes->size() * 2);
  }
  if (sys::FStat(fd, &after) != 0) sys::Fail("fstat", path);
  ConfContent content{ConfStamp::Of(after), nullptr, true};
  content.settled = IsSettled(content.stamp, clock);
  const bool steady = ConfStamp::Of(before) == content.stamp &&
                      bytes->size() == static_cast<std::size_t>(after.st_size);
  if (steady) content.bytes = std::move(bytes);
  return content;
}

ConfContent ReadAt(int directory, const std::string& name, const std::string& path) {
  struct stat info {};
  const Descriptor file = OpenRegular(directory, name, path, info);
  if (!file) return {ConfStamp{}, std::make_shared<ConfBytes>(), true};
  std::optional<WriterWatch> watch(file.get());
  const ConfStamp stamp = ConfStamp::Of(info);
  const bool may_go_on =
      watch->state() == WriterWatch::State::kUnknown && Age(stamp) < kPauseOfWriters;
  if (watch->state() == WriterWatch::State::kWritten || may_go_on) return {stamp, nullptr, false};
  if (info.st_size >= static_cast<off_t>(ConfMapping::kLeast)) {
    watch.reset();  // the mapping has one of its own
    ConfContent mapped = MapContent(file.get(), stamp);
    if (mapped.bytes) return mapped;
    // What kept it from being mapped may be somebody who has begun to write.
    watch.emplace(file.get());
    if (watch->state() == WriterWatch::State::kWritten) return {stamp, nullptr, false};
  }
  // A write has its time when it begins: one that goes on meanwhile would not show any more.
  ConfContent content = ReadContent(file.get(), path);
  content.settled = content.settled && !watch->Disturbed();
  return content;
}
