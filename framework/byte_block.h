#pragma once

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

/// Some bytes in a row that are looked at all at once. Answers have a bit for each byte, the first
/// one's lowest.
class ByteBlock {
 public:
  static constexpr std::size_t kSize = 16;

  /// @param at  kSize bytes, aligned in no way
#ifdef __SSE2__
  explicit ByteBlock(const char* at) noexcept
      : bytes_(_mm_loadu_si128(reinterpret_cast<const __m128i*>(at))) {}

  std::uint64_t Equal(char byte) const noexcept {
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes_, _mm_set1_epi8(byte))));
  }

 private:
  __m128i bytes_;
#else
  explicit ByteBlock(const char* at) noexcept { std::memcpy(bytes_.data(), at, kSize); }

  std::uint64_t Equal(char byte) const noexcept {
    std::uint64_t marks = 0;
    for (std::size_t at = 0; at < kSize; ++at) {
      marks |= std::uint64_t{bytes_[at] == byte} << at;
    }
    return marks;
  }

 private:
  std::array<char, kSize> bytes_{};
#endif
};

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
