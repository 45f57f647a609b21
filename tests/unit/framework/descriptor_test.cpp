#include "framework/descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <utility>

namespace {

Descriptor Opened() { return Descriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC)); }

bool IsOpen(int fd) { return ::fcntl(fd, F_GETFD) != -1; }

TEST(Descriptor, TheFileIsClosedAtTheEndOfItsOwnersLife) {
  int number = -1;
  {
    const Descriptor file = Opened();
    number = file.get();
    EXPECT_TRUE(file);
    EXPECT_TRUE(IsOpen(number));
  }
  EXPECT_FALSE(IsOpen(number));
}

TEST(Descriptor, MovingHandsOverTheFileAndLeavesNone) {
  Descriptor from = Opened();
  const int number = from.get();
  const Descriptor to = std::move(from);
  EXPECT_FALSE(from);  // NOLINT(bugprone-use-after-move): what is left is promised
  EXPECT_EQ(number, to.get());
  EXPECT_TRUE(IsOpen(number));
}

// The source may live on for long, so it must not keep what the target had.
TEST(Descriptor, AFileThatIsMovedOverIsClosedAtOnce) {
  Descriptor from = Opened();
  Descriptor to = Opened();
  const int taken = from.get();
  const int replaced = to.get();
  to = std::move(from);
  EXPECT_FALSE(from);  // NOLINT(bugprone-use-after-move): what is left is promised
  EXPECT_EQ(taken, to.get());
  EXPECT_TRUE(IsOpen(taken));
  EXPECT_FALSE(IsOpen(replaced));
}

TEST(Descriptor, MovedOntoItselfItKeepsItsFile) {
  Descriptor file = Opened();
  const int number = file.get();
  Descriptor& same = file;
  file = std::move(same);
  EXPECT_EQ(number, file.get());
  EXPECT_TRUE(IsOpen(number));
}

TEST(Descriptor, ClosingTwiceClosesOnce) {
  Descriptor file = Opened();
  const int number = file.get();
  file.Close();
  const Descriptor other = Opened();
  EXPECT_EQ(number, other.get()) << "the lowest free number is given out again";
  file.Close();
  EXPECT_FALSE(file);
  EXPECT_TRUE(IsOpen(number));
}

}  // namespace
