#pragma once

#include <cstddef>
#include <memory>
#include <streambuf>
#include <string_view>

#include "brisq_export.h"

namespace mgr_proc {

/// Collects what is written to a stream, and leaves no copy of it in memory: outgrown storage is
/// wiped before it is freed, and so is all of it by Wipe and at the end. For one thread at a time.
class BRISQ_API SecretBuffer : public std::streambuf {
 public:
  SecretBuffer() = default;
  ~SecretBuffer() override;
  SecretBuffer(const SecretBuffer&) = delete;
  SecretBuffer& operator=(const SecretBuffer&) = delete;

  /// All that was written; valid until the next write, Wipe or the end.
  std::string_view Text() const noexcept { return {bytes_.get(), size_}; }

  /// Refuses further writes: the stream that makes one goes bad.
  void Close() noexcept { closed_ = true; }

  /// Overwrites and frees what was written. Writing may go on unless Close was called.
  void Wipe() noexcept;

 protected:
  int_type overflow(int_type next) override;
  std::streamsize xsputn(const char* text, std::streamsize size) override;

 private:
  void Grow(std::size_t needed);

  // Storage of our own, since a std::string or std::vector frees outgrown storage as it is.
  std::unique_ptr<char[]> bytes_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
  bool closed_ = false;
};

}  // namespace mgr_proc
