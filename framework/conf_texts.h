#pragma once

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

#include "brisq_export.h"

/// Texts kept one behind the other in large blocks, which costs less time and memory than a string
/// for each. All of them go together, when this object does.
class BRISQ_API ConfTexts {
 public:
  /// Makes room for texts of this size together: keeping them throws nothing.
  /// @throws std::bad_alloc
  void Reserve(std::size_t size);
  /// Keeps `text` with `end` behind it, both of which may be texts that are kept already.
  /// @return the kept text, good as long as this object
  /// @throws std::bad_alloc
  std::string_view Keep(std::string_view text, std::string_view end);
  /// Overwrites a text that was kept and is not needed any more: it may hold a secret.
  static void Overwrite(std::string_view text) noexcept;
  /// Bytes of all texts that were ever kept.
  std::size_t size() const noexcept { return size_; }

 private:
  std::vector<std::unique_ptr<char[]>> blocks_;
  char* free_ = nullptr;  // in the last block
  std::size_t room_ = 0;
  std::size_t size_ = 0;
};
