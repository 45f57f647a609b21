#include "framework/conf_index.h"

#include <random>

namespace {

std::uint64_t RandomWord(std::random_device& random) {
  return std::uint64_t{random()} << 32 | random();
}

}  // namespace

ConfIndex::Seeds ConfIndex::Seeds::OfProcess() {
  static const Seeds seeds = [] {
    std::random_device random;
    return Seeds{RandomWord(random), RandomWord(random)};
  }();
  return seeds;
}

ConfIndex::ConfIndex(std::size_t lines) : seeds_(Seeds::OfProcess()) { Allocate(lines); }

void ConfIndex::Allocate(std::size_t lines) {
  capacity_ = 2 * lines + 16;
  memory_ = ConfMemory(capacity_ * sizeof(std::uint64_t));
  slots_ = static_cast<std::uint64_t*>(memory_.data());
}

std::size_t ConfIndex::Locate(std::uint64_t hash, Line line) const noexcept {
  std::size_t at = Home(hash);
  while (slots_[at] != Slot(hash, line)) at = After(at);
  return at;
}

void ConfIndex::Replace(std::uint64_t hash, Line line, Line other) noexcept {
  slots_[Locate(hash, line)] = Slot(hash, other);
}
