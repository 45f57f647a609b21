#include "framework/byte_block.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

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

}  // namespace
