#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <thread>

#include "brisq_export.h"
#include "framework/conf_bytes.h"

/// Gives back the memory that the system keeps a file's old content in, while new content is
/// written from it: the new file gets it in turn, and the removal of the old one need not wait for
/// it. A thread of its own follows the writer; without a thread nothing is given back early.
class BRISQ_API ForgetBehind {
 public:
  /// @param file   the old file, open for longer than this object lives
  /// @param bytes  what the new content is made from: often the old file itself, mapped
  ForgetBehind(int file, std::shared_ptr<const ConfBytes> bytes);
  /// Returns when the thread has ended.
  ~ForgetBehind();
  ForgetBehind(const ForgetBehind&) = delete;
  ForgetBehind& operator=(const ForgetBehind&) = delete;

  /// To be called by the writer: so much of the new content is written.
  void Written(std::size_t bytes) noexcept;
  /// The new content is whole.
  void WrittenAll() noexcept { Written(kAll); }

 private:
  static constexpr std::size_t kAll = static_cast<std::size_t>(-1);
  static constexpr std::size_t kStop = kAll - 1;

  void Follow() noexcept;
  void Forget(std::size_t end) noexcept;

  const int file_;
  const std::shared_ptr<const ConfBytes> bytes_;
  std::atomic<std::size_t> written_{0};
  std::thread thread_;
};
