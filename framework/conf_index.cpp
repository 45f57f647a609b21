#include "framework/conf_index.h"

#include <cstring>
#include <random>

namespace {

constexpr std::uint64_t kMix1 = 0x9E3779B97F4A7C15;
constexpr std::uint64_t kMix2 = 0xC2B2AE3D27D4EB4F;

std::uint64_t Seed() {
  std::random_device random;
  return std::uint64_t{random()} << 32 | random();
}

__extension__ using Wide = unsigned __int128;

std::uint64_t Fold(std::uint64_t value, std::uint64_t factor) noexcept {
  const auto product = static_cast<Wide>(value) * factor;
  return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

std::uint64_t Load(const char* from, std::size_t bytes) noexcept {
  std::uint64_t value = 0;
  std::memcpy(&value, from, bytes);
  return value;
}

}  // namespace

std::uint64_t ConfIndex::Hash(std::string_view name) noexcept {
  static const std::uint64_t seed = Seed();
  std::uint64_t hash = seed ^ name.size();
  const char* at = name.data();
  std::size_t left = name.size();
  for (; left >= sizeof(hash); left -= sizeof(hash), at += sizeof(hash)) {
    hash = Fold(hash ^ Load(at, sizeof(hash)), kMix1);
  }
  if (left > 0) hash = Fold(hash ^ Load(at, left), kMix2);
  return Fold(hash, kMix2);
}

ConfIndex::ConfIndex(std::size_t lines) { Allocate(lines); }

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
