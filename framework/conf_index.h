#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "brisq_export.h"
#include "framework/conf_memory.h"

/// Lines by the hash of their name: a flat table with linear probing, 8 bytes a slot and about
/// 12 bytes a line.
///
/// A slot keeps 32 bits of hash, from which its home follows, so growing and erasing never touch
/// the names. Several lines with one hash are told apart by the caller.
class BRISQ_API ConfIndex {
 public:
  using Line = std::uint32_t;
  static constexpr Line kNone = 0xFFFFFFFF;

  /// Hash of a name; differs from process to process, so that nobody can choose names that collide.
  static std::uint32_t Hash(std::string_view name) noexcept;

  /// @param lines  number of lines to expect; more only cost growing
  explicit ConfIndex(std::size_t lines);

  /// The line with this hash of which `same(line)` is true; kNone when there is none.
  template <class Same>
  Line Find(std::uint32_t hash, Same same) const {
    for (std::size_t at = Home(hash); slots_[at] != 0; at = After(at)) {
      if (HashOf(slots_[at]) == hash && same(LineOf(slots_[at]))) return LineOf(slots_[at]);
    }
    return kNone;
  }
  /// The line with this hash of which `same(line)` is true; enters `line` when there is none, and
  /// gives kNone.
  template <class Same>
  Line FindOrInsert(std::uint32_t hash, Line line, Same same) {
    if (used_ >= capacity_ - capacity_ / 8) Grow();
    std::size_t at = Home(hash);
    for (; slots_[at] != 0; at = After(at)) {
      if (HashOf(slots_[at]) == hash && same(LineOf(slots_[at]))) return LineOf(slots_[at]);
    }
    slots_[at] = Slot(hash, line);
    ++used_;
    return kNone;
  }
  /// Has the memory of a hash's home fetched, ahead of a use of that hash.
  void Prefetch(std::uint32_t hash) const noexcept { __builtin_prefetch(&slots_[Home(hash)], 1); }
  /// Takes out a line that is there.
  void Erase(std::uint32_t hash, Line line) noexcept;
  /// Puts another line in the place of one that is there.
  void Replace(std::uint32_t hash, Line line, Line other) noexcept;

 private:
  static std::uint64_t Slot(std::uint32_t hash, Line line) noexcept {
    return std::uint64_t{hash} << 32 | (std::uint64_t{line} + 1);
  }
  static std::uint32_t HashOf(std::uint64_t slot) noexcept {
    return static_cast<std::uint32_t>(slot >> 32);
  }
  static Line LineOf(std::uint64_t slot) noexcept { return static_cast<Line>(slot) - 1; }

  std::size_t Home(std::uint32_t hash) const noexcept { return (hash * capacity_) >> 32; }
  std::size_t After(std::size_t at) const noexcept { return at + 1 == capacity_ ? 0 : at + 1; }
  std::size_t Locate(std::uint32_t hash, Line line) const noexcept;
  void Place(std::uint64_t slot) noexcept;
  void Allocate(std::size_t lines);
  void Grow();

  std::size_t used_ = 0;
  std::size_t capacity_ = 0;
  ConfMemory memory_;
  std::uint64_t* slots_ = nullptr;  // in it
};
