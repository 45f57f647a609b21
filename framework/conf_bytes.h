#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include "brisq_export.h"

/// A block of bytes that is written once, when a file is read into it. Large blocks ask for large
/// pages: touching fresh memory is the dearest part of reading a big file.
class BRISQ_API ConfBytes {
 public:
  ConfBytes() = default;
  explicit ConfBytes(std::string_view content);

  /// Makes room for at least `capacity` bytes; what was written stays.
  void Reserve(std::size_t capacity);
  /// Where the next bytes go, and how many fit.
  char* End() noexcept { return data_.get() + size_; }
  std::size_t Room() const noexcept { return capacity_ - size_; }
  /// Counts bytes that were written at End().
  void Add(std::size_t bytes) noexcept { size_ += bytes; }

  std::size_t size() const noexcept { return size_; }
  std::string_view View() const noexcept { return {data_.get(), size_}; }

 private:
  struct Release {
    void operator()(char* data) const noexcept;
  };

  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
  std::unique_ptr<char[], Release> data_;
};
