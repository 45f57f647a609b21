#include "framework/conf_bytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

namespace {

TEST(ConfBytes, AreEmptyAtFirst) {
  const ConfBytes bytes;
  EXPECT_EQ(bytes.size(), 0U);
  EXPECT_EQ(bytes.View(), "");
}

TEST(ConfBytes, KeepWhatWasWrittenWhenTheyGrow) {
  ConfBytes bytes("abc");
  for (const std::size_t room : {std::size_t{10}, std::size_t{5000}, std::size_t{9} << 20}) {
    SCOPED_TRACE(room);
    bytes.Reserve(room);
    ASSERT_GE(bytes.Room() + bytes.size(), room);
    std::memcpy(bytes.End(), "xy", 2);
    bytes.Add(2);
  }
  EXPECT_EQ(bytes.View(), "abcxyxyxy");
}

TEST(ConfBytes, LargeBlocksCanBeWrittenToTheirEnd) {
  ConfBytes bytes;
  bytes.Reserve((std::size_t{9} << 20) + 1);
  const std::size_t room = bytes.Room();
  std::memset(bytes.End(), 'x', room);
  bytes.Add(room);
  EXPECT_EQ(bytes.Room(), 0U);
  EXPECT_EQ(bytes.View().back(), 'x');
}

TEST(ConfBytes, ContentThatIsGivenIsTakenWithoutACopy) {
  auto content = std::make_unique<char[]>(4);
  std::copy_n("a:1\n", 4, content.get());
  const char* const at = content.get();
  const ConfBytes bytes(std::move(content), 3);
  EXPECT_EQ(bytes.View(), "a:1");
  EXPECT_EQ(bytes.View().data(), at);
  EXPECT_EQ(bytes.size(), 3U);
  EXPECT_EQ(bytes.mapping(), nullptr);
}

}  // namespace
