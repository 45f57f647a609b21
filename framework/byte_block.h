#pragma once

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

/// Some bytes in a row that are looked at all at once. Answers have a bit for each byte, the first
/// one's lowest.
class ByteBlock {
 public:
  static constexpr std::size_t kSize = 16;
  /// The answer "each of them".
  static constexpr std::uint64_t kAll = (std::uint64_t{1} << kSize) - 1;

  /// @param at  kSize bytes, aligned in no way
#ifdef __SSE2__
  explicit ByteBlock(const char* at) noexcept
      : bytes_(_mm_loadu_si128(reinterpret_cast<const __m128i*>(at))) {}

  std::uint64_t Equal(char byte) const noexcept { return Marks(_mm_set1_epi8(byte)); }
  std::uint64_t Equal(const ByteBlock& other) const noexcept { return Marks(other.bytes_); }

 private:
  std::uint64_t Marks(__m128i other) const noexcept {
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes_, other)));
  }

  __m128i bytes_;
#else
  explicit ByteBlock(const char* at) noexcept { std::memcpy(bytes_.data(), at, kSize); }

  std::uint64_t Equal(char byte) const noexcept {
    ByteBlock other = *this;
    other.bytes_.fill(byte);
    return Equal(other);
  }
  std::uint64_t Equal(const ByteBlock& other) const noexcept {
    std::uint64_t marks = 0;
    for (std::size_t at = 0; at < kSize; ++at) {
      marks |= std::uint64_t{bytes_[at] == other.bytes_[at]} << at;
    }
    return marks;
  }

 private:
  std::array<char, kSize> bytes_{};
#endif
};

/// All of a text of up to 16 bytes in two words, which may hold some bytes both. Copying the text
/// into words instead makes a processor wait until all that came before is done.
struct ShortText {
  std::uint64_t first = 0;
  std::uint64_t last = 0;

  /// Reads nothing beside the text.
  ShortText(const char* text, std::size_t size) noexcept {
    if (size >= 8) {
      first = Load<std::uint64_t>(text);
      last = Load<std::uint64_t>(text + size - 8);
    } else if (size >= 4) {
      first = Load<std::uint32_t>(text);
      last = Load<std::uint32_t>(text + size - 4);
    } else if (size > 0) {
      first = Load<std::uint8_t>(text) << 8 | Load<std::uint8_t>(text + size / 2);
      last = Load<std::uint8_t>(text + size - 1);
    }
  }
  /// Of texts of one size.
  bool operator==(const ShortText&) const = default;

 private:
  template <class Word>
  static std::uint64_t Load(const char* from) noexcept {
    Word word;
    std::memcpy(&word, from, sizeof word);
    return word;
  }
};

/// Whether two texts of one size are the same. Reads nothing beside them.
inline bool AreSame(const char* one, const char* other, std::size_t size) noexcept {
  constexpr std::size_t kBlock = ByteBlock::kSize;
  if (size < kBlock) return ShortText(one, size) == ShortText(other, size);
  // The last block may look at some bytes again.
  const std::size_t last = size - kBlock;
  std::uint64_t same =
      ByteBlock(one).Equal(ByteBlock(other)) & ByteBlock(one + last).Equal(ByteBlock(other + last));
  for (std::size_t at = kBlock; at < last; at += kBlock) {
    same &= ByteBlock(one + at).Equal(ByteBlock(other + at));
  }
  return same == ByteBlock::kAll;
}

/// Whether some of the bytes is in a text. Reads nothing beside it.
template <std::size_t kCount>
bool HasOneOf(std::string_view text, const std::array<char, kCount>& bytes) noexcept {
  constexpr std::size_t kBlock = ByteBlock::kSize;
  std::uint64_t marks = 0;
  const auto look = [&](const char* at) {
    for (const char byte : bytes) marks |= ByteBlock(at).Equal(byte);
  };
  if (text.size() < kBlock) {
    for (const char each : text) {
      for (const char byte : bytes) marks |= std::uint64_t{each == byte};
    }
    return marks != 0;
  }
  // The last block may look at some bytes again.
  const char* const last = text.data() + text.size() - kBlock;
  for (const char* at = text.data(); at < last; at += kBlock) look(at);
  look(last);
  return marks != 0;
}

/// As ByteBlock, of as many bytes as an answer has bits.
class WideByteBlock {
 public:
  static constexpr std::size_t kSize = 4 * ByteBlock::kSize;

  /// @param at  kSize bytes, aligned in no way
  explicit WideByteBlock(const char* at) noexcept
      : parts_{ByteBlock(at), ByteBlock(at + ByteBlock::kSize),
               ByteBlock(at + 2 * ByteBlock::kSize), ByteBlock(at + 3 * ByteBlock::kSize)} {}

  std::uint64_t Equal(char byte) const noexcept {
    return parts_[0].Equal(byte) | parts_[1].Equal(byte) << ByteBlock::kSize |
           parts_[2].Equal(byte) << 2 * ByteBlock::kSize |
           parts_[3].Equal(byte) << 3 * ByteBlock::kSize;
  }

 private:
  std::array<ByteBlock, 4> parts_;
};
