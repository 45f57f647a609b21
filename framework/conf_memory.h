#pragma once

#include <cstddef>
#include <memory>

#include "brisq_export.h"

/// A block of memory, zero at first. Large blocks ask the system for large pages: touching fresh
/// memory is the dearest part of reading a big file. Movable.
class BRISQ_API ConfMemory {
 public:
  ConfMemory() = default;
  /// @param bytes  at least; 0 gives none
  /// @throws std::bad_alloc
  explicit ConfMemory(std::size_t bytes);

  void* data() const noexcept { return block_.get(); }
  /// What is there, which may be more than was asked for.
  std::size_t size() const noexcept { return block_ ? block_.get_deleter().bytes : 0; }

 private:
  struct Release {
    std::size_t bytes;
    bool mapped;
    void operator()(void* block) const noexcept;
  };

  std::unique_ptr<void, Release> block_{nullptr, Release{0, false}};
};

/// Asks the system for large pages in a block that lies somewhere else, as far as it covers whole
/// ones. Best before the block is touched.
BRISQ_API void WantLargePages(void* block, std::size_t bytes) noexcept;
