#include "framework/byte_block.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace {

// Each byte value at each place of a block that is not aligned.
template <class Block>
void ExpectEachPlaceTold() {
  for (const char byte : {'\0', '\n', ':', 'x', '\x7f', '\x80', '\xff'}) {
    for (std::size_t at = 0; at < Block::kSize; ++at) {
      std::string bytes(1 + Block::kSize + 1, byte == 'x' ? 'y' : 'x');
      bytes[1 + at] = byte;
      EXPECT_EQ(Block(bytes.data() + 1).Equal(byte), std::uint64_t{1} << at) << at;
    }
  }
}

TEST(ByteBlock, TellsThePlaceOfAByte) { ExpectEachPlaceTold<ByteBlock>(); }

TEST(ByteBlock, TellsThePlaceOfAByteAmongMany) { ExpectEachPlaceTold<WideByteBlock>(); }

TEST(ByteBlock, TellsAllPlacesAndNoOthers) {
  const std::string bytes = "a:b:c:d:e:f:g:h:";
  EXPECT_EQ(ByteBlock(bytes.data()).Equal(':'), 0xAAAAU);
  EXPECT_EQ(ByteBlock(bytes.data()).Equal('z'), 0U);
  const std::string many = bytes + std::string(16, ':') + bytes + std::string(16, '.');
  EXPECT_EQ(WideByteBlock(many.data()).Equal(':'), 0x0000AAAAFFFFAAAAU);
}

// A page that no other one lies beside: reading past it ends the test.
class LonelyPage {
 public:
  LonelyPage() {
    void* const got = ::mmap(nullptr, 3 * kSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (got == MAP_FAILED) throw std::bad_alloc();
    pages_ = static_cast<char*>(got);
    ::mprotect(pages_ + kSize, kSize, PROT_READ | PROT_WRITE);
  }
  ~LonelyPage() { ::munmap(pages_, 3 * kSize); }
  LonelyPage(const LonelyPage&) = delete;
  LonelyPage& operator=(const LonelyPage&) = delete;

  char* AtBegin() { return pages_ + kSize; }
  char* AtEnd(std::size_t bytes) { return pages_ + 2 * kSize - bytes; }

 private:
  static constexpr std::size_t kSize = 4096;
  char* pages_ = nullptr;
};

constexpr std::size_t kSizes = 70;

TEST(ByteBlock, TextsAreTheSameWhenEachByteIs) {
  LonelyPage page;
  LonelyPage other_page;
  for (std::size_t size = 0; size < kSizes; ++size) {
    SCOPED_TRACE(size);
    const std::string text(size, 'x');
    for (char* const place : {page.AtBegin(), page.AtEnd(size)}) {
      text.copy(place, size);
      char* const other = other_page.AtEnd(size);
      text.copy(other, size);
      EXPECT_TRUE(AreSame(place, other, size));
      for (std::size_t at = 0; at < size; ++at) {
        other[at] = 'y';
        EXPECT_FALSE(AreSame(place, other, size)) << at;
        other[at] = 'x';
      }
    }
  }
}

TEST(ByteBlock, AByteOfSeveralIsFoundWhereverItIs) {
  LonelyPage page;
  constexpr std::array kWanted{':', '\n'};
  for (std::size_t size = 0; size < kSizes; ++size) {
    SCOPED_TRACE(size);
    for (char* const place : {page.AtBegin(), page.AtEnd(size)}) {
      const std::string_view text(place, size);
      std::fill_n(place, size, 'x');
      EXPECT_FALSE(HasOneOf(text, kWanted));
      for (std::size_t at = 0; at < 2 * size; ++at) {
        place[at / 2] = kWanted[at % 2];
        EXPECT_TRUE(HasOneOf(text, kWanted)) << at / 2;
        place[at / 2] = 'x';
      }
    }
  }
}

}  // namespace
