#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

#include "brisq_export.h"
#include "framework/byte_block.h"
#include "framework/conf_memory.h"

/// Lines by the hash of their name: a flat table with linear probing, at most half full at first,
/// 8 bytes a slot and 16 bytes a line.
///
/// A slot holds where the line begins and a part of the hash, so a find goes from the slot straight
/// to the line. What else is needed of a hash when slots move comes from the caller. Several lines
/// with one hash are told apart by the caller.
class BRISQ_API ConfIndex {
 public:
  using Line = std::uint64_t;
  static constexpr Line kNone = ~Line{0};
  /// Lines must be below this.
  static constexpr Line kLimit = (Line{1} << 40) - 1;

  /// From this size on names look alike in the part of their hash that tells the size.
  static constexpr std::size_t kLongName = 255;

  /// Holds nothing; may only be assigned to.
  ConfIndex() = default;
  /// @param lines  number of lines to expect; more only cost growing
  explicit ConfIndex(std::size_t lines);

  /// Hash of a name; the same for all indexes of a process, and differs from process to process, so
  /// that nobody can choose names that collide. Its lowest byte is the name's size.
  std::uint64_t Hash(std::string_view name) const noexcept;

  /// The first line that may have this hash; kNone when there is none. Both names have the same
  /// size when it is below kLongName.
  Line First(std::uint64_t hash) const noexcept {
    std::size_t at = Home(hash);
    while (slots_[at] != 0 && !HasTag(slots_[at], hash)) at = After(at);
    return LineOf(slots_[at]);
  }
  /// The line with this hash of which `same(line)` is true; kNone when there is none. Asked are
  /// also a few lines with other hashes.
  template <class Same>
  Line Find(std::uint64_t hash, Same same) const {
    for (std::size_t at = Home(hash); slots_[at] != 0; at = After(at)) {
      if (HasTag(slots_[at], hash) && same(LineOf(slots_[at]))) return LineOf(slots_[at]);
    }
    return kNone;
  }
  /// The line with this hash of which `same(line)` is true; enters `line` when there is none, and
  /// gives kNone. `hash_of` tells the hash of a line that is there.
  template <class Same, class HashOf>
  Line FindOrInsert(std::uint64_t hash, Line line, Same same, HashOf hash_of) {
    if (used_ >= capacity_ - capacity_ / 4) Grow(hash_of);
    std::size_t at = Home(hash);
    for (; slots_[at] != 0; at = After(at)) {
      if (HasTag(slots_[at], hash) && same(LineOf(slots_[at]))) return LineOf(slots_[at]);
    }
    slots_[at] = Slot(hash, line);
    ++used_;
    return kNone;
  }
  /// Has the memory of a hash's home fetched, ahead of a use of that hash.
  void Prefetch(std::uint64_t hash) const noexcept { __builtin_prefetch(&slots_[Home(hash)], 1); }
  /// Takes out a line that is there; `hash_of` as for FindOrInsert.
  template <class HashOf>
  void Erase(std::uint64_t hash, Line line, HashOf hash_of) {
    std::size_t hole = Locate(hash, line);
    // Slots behind the hole move up as long as that brings them no further forward than their home.
    for (std::size_t at = After(hole); slots_[at] != 0; at = After(at)) {
      const std::size_t home = Home(hash_of(LineOf(slots_[at])));
      const bool stays = hole < at ? home > hole && home <= at : home > hole || home <= at;
      if (stays) continue;
      slots_[hole] = slots_[at];
      hole = at;
    }
    slots_[hole] = 0;
    --used_;
  }
  /// Puts another line in the place of one that is there.
  void Replace(std::uint64_t hash, Line line, Line other) noexcept;

 private:
  static constexpr int kLineBits = 40;
  __extension__ using Wide = unsigned __int128;

  // Unknown to who chooses names. With one of them known, a name could be chosen whose products are
  // all zero, whatever else it holds.
  struct Seeds {
    std::uint64_t first;
    std::uint64_t second;
    static Seeds OfProcess();
  };

  static std::uint64_t Fold(std::uint64_t value, std::uint64_t factor) noexcept {
    const auto product = static_cast<Wide>(value) * factor;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
  }
  std::uint64_t Step(std::uint64_t hash, const ShortText& text) const noexcept {
    return Fold(text.first ^ hash, text.last ^ seeds_.second);
  }

  static std::uint64_t Slot(std::uint64_t hash, Line line) noexcept {
    return hash << kLineBits | (line + 1);
  }
  // The home comes from the upper bits of the hash, the tag from the lower ones. kNone's slot is 0.
  static bool HasTag(std::uint64_t slot, std::uint64_t hash) noexcept {
    return slot >> kLineBits == hash << kLineBits >> kLineBits;
  }
  static Line LineOf(std::uint64_t slot) noexcept {
    return (slot & ((std::uint64_t{1} << kLineBits) - 1)) - 1;
  }

  std::size_t Home(std::uint64_t hash) const noexcept {
    return static_cast<std::size_t>(static_cast<Wide>(hash) * capacity_ >> 64);
  }
  std::size_t After(std::size_t at) const noexcept { return at + 1 == capacity_ ? 0 : at + 1; }
  std::size_t Locate(std::uint64_t hash, Line line) const noexcept;
  void Allocate(std::size_t lines);
  template <class HashOf>
  void Grow(HashOf hash_of) {
    const std::size_t old_capacity = capacity_;
    const std::uint64_t* const old = slots_;
    const ConfMemory old_memory = std::move(memory_);
    Allocate(used_ * 2);
    for (std::size_t from = 0; from < old_capacity; ++from) {
      if (old[from] == 0) continue;
      std::size_t at = Home(hash_of(LineOf(old[from])));
      while (slots_[at] != 0) at = After(at);
      slots_[at] = old[from];
    }
  }

  Seeds seeds_{};
  std::size_t used_ = 0;
  std::size_t capacity_ = 0;
  ConfMemory memory_;
  std::uint64_t* slots_ = nullptr;  // in it
};

// Here, as each find begins with it.
inline std::uint64_t ConfIndex::Hash(std::string_view name) const noexcept {
  constexpr std::uint64_t kMix = 0x9E3779B97F4A7C15;
  constexpr std::size_t kStep = 16;
  std::uint64_t hash = seeds_.first;
  if (name.size() > kStep) {
    // The last step may take some bytes again. Most names have two steps, and no loop.
    const char* const last = name.data() + name.size() - kStep;
    hash = Step(hash, ShortText(name.data(), kStep));
    for (const char* at = name.data() + kStep; at < last; at += kStep) {
      hash = Step(hash, ShortText(at, kStep));
    }
    hash = Step(hash, ShortText(last, kStep));
  } else {
    hash = Step(hash, ShortText(name.data(), name.size()));
  }
  // Not any earlier, where a text's bytes could undo what the size does.
  hash = Fold(hash ^ name.size(), kMix);
  return (hash & ~std::uint64_t{0xFF}) | std::min(name.size(), kLongName);
}
