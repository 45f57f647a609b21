#include "framework/conf_memory.h"

#include <gtest/gtest.h>

#include <cstring>
#include <utility>

namespace {

TEST(ConfMemory, IsZeroAtFirstAndWritableToItsEnd) {
  for (const std::size_t bytes : {1U, 5000U, (1U << 20) - 1, 1U << 20, 9U << 20}) {
    SCOPED_TRACE(bytes);
    const ConfMemory memory(bytes);
    ASSERT_GE(memory.size(), bytes);
    auto* data = static_cast<unsigned char*>(memory.data());
    EXPECT_EQ(data[0], 0);
    EXPECT_EQ(data[memory.size() - 1], 0);
    std::memset(data, 0xFF, memory.size());
  }
}

TEST(ConfMemory, MovesWithItsBlock) {
  ConfMemory memory(100);
  void* const block = memory.data();
  const ConfMemory other = std::move(memory);
  EXPECT_EQ(other.data(), block);
  EXPECT_EQ(other.size(), 100U);
}

TEST(ConfMemory, MayBeNothing) {
  const ConfMemory memory(0);
  EXPECT_EQ(memory.data(), nullptr);
  EXPECT_EQ(memory.size(), 0U);
}

}  // namespace
