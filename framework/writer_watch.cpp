#include "framework/writer_watch.h"

#include <fcntl.h>

#include <cerrno>
#include <csignal>

#include "framework/sys.h"

WriterWatch::WriterWatch(int fd) noexcept : fd_(fd), state_(State::kUnknown) {
  // A read lease is given only while nobody has the file open for writing. The signal that tells of
  // a waiting opener is one that is ignored unless a handler is set.
  if (sys::FCntl(fd_, F_SETSIG, SIGURG) != 0) return;
  if (sys::FCntl(fd_, F_SETLEASE, F_RDLCK) == 0) {
    state_ = State::kFree;
  } else if (errno == EAGAIN) {
    state_ = State::kWritten;
  }
}

WriterWatch::~WriterWatch() {
  if (state_ == State::kFree) ::fcntl(fd_, F_SETLEASE, F_UNLCK);
}

bool WriterWatch::Disturbed() const noexcept {
  // Told is the lease that is left when the wish of who waits is met.
  return state_ == State::kFree && ::fcntl(fd_, F_GETLEASE) != F_RDLCK;
}
