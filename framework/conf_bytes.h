#pragma once

#include <cstddef>
#include <string_view>

#include "brisq_export.h"
#include "framework/conf_memory.h"

/// Bytes that are written once, when a file is read into them, and then shared.
class BRISQ_API ConfBytes {
 public:
  ConfBytes() = default;
  explicit ConfBytes(std::string_view content);

  /// Makes room for at least `capacity` bytes; what was written stays.
  void Reserve(std::size_t capacity);
  /// Where the next bytes go, and how many fit.
  char* End() noexcept { return Begin() + size_; }
  std::size_t Room() const noexcept { return memory_.size() - size_; }
  /// Counts bytes that were written at End().
  void Add(std::size_t bytes) noexcept { size_ += bytes; }

  std::size_t size() const noexcept { return size_; }
  std::string_view View() const noexcept { return {Begin(), size_}; }

 private:
  char* Begin() const noexcept { return static_cast<char*>(memory_.data()); }

  std::size_t size_ = 0;
  ConfMemory memory_;
};
