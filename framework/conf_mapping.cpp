#include "framework/conf_mapping.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <system_error>

#include "framework/in_two.h"
#include "framework/local_file.h"
#include "framework/no_signals.h"
#include "framework/sys.h"

namespace {

constexpr std::size_t kPage = 4096;
constexpr std::size_t kLargePage = std::size_t{2} << 20;
// How long somebody who opens the file for writing waits for nothing.
constexpr int kPause = 5;  // milliseconds
constexpr int kLongestPause = 1000;
constexpr std::size_t kStep = std::size_t{4} << 20;
constexpr std::size_t kTouched = std::size_t{64} << 20;

std::size_t WholePages(std::size_t bytes) noexcept { return (bytes + kPage - 1) / kPage * kPage; }

// Memory that begins where large pages do, so that a copy in such pages can be moved there whole.
char* Reserve(std::size_t bytes) noexcept {
  const std::size_t more = bytes + kLargePage;
  void* const got = ::mmap(nullptr, more, PROT_READ | PROT_WRITE,
                           MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (got == MAP_FAILED) return nullptr;
  char* const begin = static_cast<char*>(got);
  const std::size_t before =
      (kLargePage - reinterpret_cast<std::uintptr_t>(got) % kLargePage) % kLargePage;
  if (before > 0) ::munmap(begin, before);
  ::munmap(begin + before + bytes, more - before - bytes);
  return begin + before;
}

// False when a part of the file can't be read, which touching it later would end the process for.
bool Touch(char* place, std::size_t bytes) {
  const std::size_t half = WholePages(bytes / 2);
  int lower = 0;
  int upper = 0;
  InTwo([&] { lower = ::madvise(place, half, MADV_POPULATE_READ); },
        [&] { upper = ::madvise(place + half, bytes - half, MADV_POPULATE_READ); });
  return lower == 0 && upper == 0;
}

// The system takes a lease back by force some seconds after somebody else has wished for it; 0
// stands for never.
bool LeasesLast() {
  constexpr int kEnough = 10;  // seconds, for a copy on a slow disk
  int seconds = -1;
  std::ifstream("/proc/sys/fs/lease-break-time") >> seconds;
  return seconds == 0 || seconds >= kEnough;
}

bool IsMapped(char* place) noexcept {
  unsigned char resident = 0;
  return ::mincore(place, kPage, &resident) == 0;
}

}  // namespace

std::unique_ptr<ConfMapping> ConfMapping::Of(int file, Duration longest) {
  Descriptor own(::fcntl(file, F_DUPFD_CLOEXEC, 0));
  if (!own || !IsLocalFile(own.get()) || !LeasesLast()) return nullptr;
  std::unique_ptr<ConfMapping> mapping(new ConfMapping(std::move(own), longest));
  try {
    if (!mapping->Map()) return nullptr;
    mapping->StartKeeper();
  } catch (const std::system_error&) {
    return nullptr;
  }
  return mapping;
}

ConfMapping::ConfMapping(Descriptor file, Duration longest)
    : owner_(::getpid()), end_(Clock::now() + longest), file_(std::move(file)) {}

bool ConfMapping::Map() {
  watch_ = std::make_unique<WriterWatch>(file_.get());
  if (watch_->state() != WriterWatch::State::kFree) return false;
  struct stat info {};
  if (sys::FStat(file_.get(), &info) != 0 || info.st_size <= 0) return false;
  stamp_ = ConfStamp::Of(info);
  const std::size_t bytes = WholePages(static_cast<std::size_t>(info.st_size));
  copy_ = Reserve(bytes);
  char* const place = copy_ == nullptr ? nullptr : Reserve(bytes);
  if (place == nullptr) return false;
  // When this fails the space may be somebody else's by now.
  if (::mmap(place, bytes, PROT_READ, MAP_PRIVATE | MAP_FIXED, file_.get(), 0) != place)
    return false;
  place_ = place;
  size_ = static_cast<std::size_t>(info.st_size);
  return TouchAll() && IsAsItWas();
}

// Who wants to write need not wait for a slow disk.
bool ConfMapping::TouchAll() {
  const std::size_t bytes = WholePages(size_);
  for (std::size_t at = 0; at < bytes; at += kTouched) {
    if (watch_->Disturbed() || Clock::now() >= end_) return false;
    if (!Touch(place_ + at, std::min(kTouched, bytes - at))) return false;
  }
  return true;
}

bool ConfMapping::IsAsItWas() const noexcept {
  struct stat info {};
  return !watch_->Disturbed() && sys::FStat(file_.get(), &info) == 0 &&
         ConfStamp::Of(info) == stamp_;
}

void ConfMapping::StartKeeper() {
  end_of_keeper_ = Descriptor(::eventfd(0, EFD_CLOEXEC));
  if (!end_of_keeper_) throw std::system_error(errno, std::generic_category());
  const NoSignals in_the_keeper;
  keeper_ = std::make_unique<std::thread>([this] { Keep(); });
}

void ConfMapping::EndKeeper() noexcept {
  if (!keeper_) return;
  if (::getpid() != owner_) {
    // A child that was forked has no thread to wait for, and its parent still needs the lease.
    static_cast<void>(keeper_.release());
    static_cast<void>(watch_.release());
    return;
  }
  ended_ = true;
  ::eventfd_write(end_of_keeper_.get(), 1);
  keeper_->join();
}

ConfMapping::~ConfMapping() {
  EndKeeper();
  if (place_ != nullptr) ::munmap(place_, WholePages(size_));
  if (copy_ != nullptr) ::munmap(copy_, WholePages(static_cast<std::size_t>(stamp_.size)));
}

bool ConfMapping::IsCopied() const {
  const std::lock_guard lock(mutex_);
  return watch_ == nullptr;
}

void ConfMapping::Keep() noexcept {
  struct pollfd end {
    end_of_keeper_.get(), POLLIN, 0
  };
  // What keeps a copy from being made, such as too little memory, may pass.
  for (int pause = kPause; !IsDone(); pause = std::min(pause, kLongestPause)) {
    ::poll(&end, 1, pause);
    if (failed_) pause *= 2;
  }
}

bool ConfMapping::IsDone() noexcept {
  const std::lock_guard lock(mutex_);
  const bool wanted = watch_->Disturbed() || Clock::now() >= end_;
  if (ended_) return true;
  const bool done = wanted && TakeCopy();
  failed_ = wanted && !done;
  return done;
}

// A copy takes the mapping's place in one step of the system, so that who reads there sees the same
// bytes before and after.
bool ConfMapping::TakeCopy() noexcept {
  const std::size_t bytes = WholePages(size_);
  ::madvise(copy_, bytes, MADV_HUGEPAGE);
  if (!ReadInto(copy_)) return false;
  if (::mremap(copy_, bytes, bytes, MREMAP_MAYMOVE | MREMAP_FIXED, place_) != place_) {
    // Readers would find nothing, or what somebody else puts there.
    if (!IsMapped(place_)) std::abort();
    return false;
  }
  copy_ = nullptr;
  watch_.reset();
  file_.Close();
  return true;
}

bool ConfMapping::ReadInto(char* copy) const noexcept {
  for (std::size_t at = 0; at < size_ && !ended_;) {
    const ssize_t got =
        ::pread(file_.get(), copy + at, std::min(kStep, size_ - at), static_cast<off_t>(at));
    if (got <= 0) return false;
    at += static_cast<std::size_t>(got);
  }
  return !ended_;
}

void ConfMapping::Forget(std::size_t end) noexcept {
  const std::lock_guard lock(mutex_);
  // A large page in the system's memory goes as a whole.
  end = end < size_ ? end / kLargePage * kLargePage : WholePages(size_);
  if (watch_ == nullptr || end <= forgotten_) return;
  ::madvise(place_ + forgotten_, end - forgotten_, MADV_DONTNEED);
  ::posix_fadvise(file_.get(), 0, static_cast<off_t>(end), POSIX_FADV_DONTNEED);
  forgotten_ = end;
}
