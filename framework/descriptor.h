#pragma once

#include <unistd.h>

#include <utility>

/// A file descriptor that is closed at the end of its owner's life. Moving leaves an empty one.
class Descriptor {
 public:
  Descriptor() = default;
  /// Takes over `fd`; a negative one stands for none.
  explicit Descriptor(int fd) noexcept : fd_(fd) {}
  ~Descriptor() { Close(); }
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    // The old file is closed here and not with `other`, which may live on.
    const Descriptor old(std::exchange(fd_, std::exchange(other.fd_, -1)));
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  explicit operator bool() const noexcept { return fd_ >= 0; }
  int get() const noexcept { return fd_; }

  /// Errors of close(2) are lost: for files that were written, sync first.
  void Close() noexcept {
    if (fd_ >= 0) {
      ::close(std::exchange(fd_, -1));
    }
  }

 private:
  int fd_ = -1;
};
