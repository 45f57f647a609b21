#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include "brisq_export.h"
#include "framework/conf_memory.h"

class ConfMapping;

/// Bytes that are written once, when a file is read into them, and then shared; or those of a file
/// that is mapped.
class BRISQ_API ConfBytes {
 public:
  ConfBytes();
  explicit ConfBytes(std::string_view content);
  /// Content that is there already: nothing can be added to it.
  explicit ConfBytes(std::unique_ptr<ConfMapping> mapping);
  /// Content that is there already, `size` bytes: nothing can be added to it.
  ConfBytes(std::unique_ptr<char[]> content, std::size_t size) noexcept;
  ~ConfBytes();

  /// Makes room for at least `capacity` bytes; what was written stays.
  void Reserve(std::size_t capacity);
  /// Where the next bytes go, and how many fit.
  char* End() noexcept { return Begin() + size_; }
  std::size_t Room() const noexcept { return memory_.size() - size_; }
  /// Counts bytes that were written at End().
  void Add(std::size_t bytes) noexcept { size_ += bytes; }

  std::size_t size() const noexcept { return size_; }
  std::string_view View() const noexcept { return {begin_, size_}; }

  /// Null for bytes that were read.
  ConfMapping* mapping() const noexcept { return mapping_.get(); }

 private:
  char* Begin() const noexcept { return static_cast<char*>(memory_.data()); }

  const char* begin_ = nullptr;
  std::size_t size_ = 0;
  ConfMemory memory_;
  std::unique_ptr<char[]> given_;
  std::unique_ptr<ConfMapping> mapping_;
};
