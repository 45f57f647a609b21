#include "framework/conf_index.h"

#include <cstring>
#include <random>

namespace {

constexpr std::uint64_t kMix = 0x9E3779B97F4A7C15;

// Unknown to who chooses names. With one of them known, a name could be chosen whose products are
// all zero, whatever else it holds.
struct Seeds {
  std::uint64_t first;
  std::uint64_t second;
};

Seeds MakeSeeds() {
  std::random_device random;
  const auto wide = [&] { return std::uint64_t{random()} << 32 | random(); };
  return {wide(), wide()};
}

__extension__ using Wide = unsigned __int128;

std::uint64_t Fold(std::uint64_t value, std::uint64_t factor) noexcept {
  const auto product = static_cast<Wide>(value) * factor;
  return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

template <class Word>
std::uint64_t Load(const char* from) noexcept {
  Word word;
  std::memcpy(&word, from, sizeof word);
  return word;
}

struct Ends {
  std::uint64_t first;
  std::uint64_t last;
};

// All of a text of up to 16 bytes, in words that may overlap. Copying it into a word instead makes
// a processor wait until all that came before is done.
Ends EndsOf(const char* text, std::size_t size) noexcept {
  if (size >= 8) return {Load<std::uint64_t>(text), Load<std::uint64_t>(text + size - 8)};
  if (size >= 4) return {Load<std::uint32_t>(text), Load<std::uint32_t>(text + size - 4)};
  if (size == 0) return {0, 0};
  return {Load<std::uint8_t>(text) << 8 | Load<std::uint8_t>(text + size / 2),
          Load<std::uint8_t>(text + size - 1)};
}

}  // namespace

std::uint64_t ConfIndex::Hash(std::string_view name) noexcept {
  static const Seeds seeds = MakeSeeds();
  constexpr std::size_t kStep = 16;
  const char* at = name.data();
  std::size_t left = name.size();
  std::uint64_t hash = seeds.first;
  for (; left > kStep; left -= kStep, at += kStep) {
    hash = Fold(Load<std::uint64_t>(at) ^ hash, Load<std::uint64_t>(at + 8) ^ seeds.second);
  }
  // The last step of a long name takes some bytes again.
  const Ends ends = name.size() > kStep ? EndsOf(at + left - kStep, kStep) : EndsOf(at, left);
  hash = Fold(ends.first ^ hash, ends.last ^ seeds.second);
  // Not any earlier, where a text's bytes could undo what the size does.
  return Fold(hash ^ name.size(), kMix);
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
