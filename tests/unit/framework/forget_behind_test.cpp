#include "framework/forget_behind.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "framework/conf_mapping.h"
#include "framework/descriptor.h"
#include "tests/support/temp_dir.h"
#include "tests/unit/framework/conf_fixture.h"

namespace {

constexpr std::size_t kPage = 4096;
constexpr std::size_t kSize = std::size_t{8} << 20;

class ForgetBehindTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_.Write("file", text_);
    file_ = Descriptor(::open((folder_ / "file").c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::fsync(file_.get()), 0);
  }

  // Pages of the file that the system has in memory.
  std::size_t Kept() const {
    void* const place = ::mmap(nullptr, kSize, PROT_READ, MAP_SHARED, file_.get(), 0);
    std::vector<unsigned char> pages(kSize / kPage);
    EXPECT_EQ(::mincore(place, kSize, pages.data()), 0);
    ::munmap(place, kSize);
    return static_cast<std::size_t>(std::count_if(
        pages.begin(), pages.end(), [](unsigned char page) { return (page & 1) != 0; }));
  }
  // Files that are nowhere but in memory can't be forgotten.
  bool IsOnDisk() const {
    struct statfs info {};
    EXPECT_EQ(::fstatfs(file_.get(), &info), 0);
    return info.f_type != TMPFS_MAGIC;
  }
  // Waits until no more than this is kept, for two seconds at most.
  bool Comes(std::size_t pages) const {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (Kept() > pages && std::chrono::steady_clock::now() < limit) std::this_thread::yield();
    return Kept() <= pages;
  }
  // The system keeps a page that it is looking at itself at that moment: what is asked for is that
  // it happens, not that it happens each time.
  static bool InOneOfTen(const std::function<bool()>& happens) {
    for (int time = 0; time < 10; ++time) {
      if (happens()) return true;
    }
    return false;
  }

  support::TempDir folder_;
  const std::string text_ = std::string(kSize, 'x');
  Descriptor file_;
};

TEST_F(ForgetBehindTest, FollowsTheWriter) {
  if (conf_fixture::IsNeverMapped(folder_.path())) GTEST_SKIP() << "no file is mapped here";
  if (!IsOnDisk()) GTEST_SKIP() << "a file that is in memory only stays there";
  EXPECT_TRUE(InOneOfTen([this] {
    auto mapping = ConfMapping::Of(file_.get());
    if (!mapping) return false;
    const auto bytes = std::make_shared<ConfBytes>(std::move(mapping));
    const std::size_t all = Kept();
    bool followed = false;
    {
      ForgetBehind forget(file_.get(), bytes);
      forget.Written(kSize / 2);
      followed = Comes(all * 7 / 8) && Kept() >= all * 4 / 10;
      forget.WrittenAll();
    }
    const bool forgot = Kept() < all / 10;
    EXPECT_TRUE(bytes->View() == text_);
    return followed && forgot;
  }));
}

TEST_F(ForgetBehindTest, ForgetsAFileThatWasRead) {
  if (!IsOnDisk()) GTEST_SKIP() << "a file that is in memory only stays there";
  const auto bytes = std::make_shared<ConfBytes>(text_);
  EXPECT_TRUE(InOneOfTen([&] {
    EXPECT_TRUE(support::ReadFile(folder_ / "file") == text_);
    {
      ForgetBehind forget(file_.get(), bytes);
      forget.Written(kSize / 2);
      forget.WrittenAll();
    }
    return Kept() < kSize / kPage / 10;
  }));
  EXPECT_TRUE(bytes->View() == text_);
}

TEST_F(ForgetBehindTest, KeepsWhatWasNotWritten) {
  const auto bytes = std::make_shared<ConfBytes>(text_);
  const std::size_t all = Kept();
  { const ForgetBehind forget(file_.get(), bytes); }
  EXPECT_GE(Kept(), all * 9 / 10);
}

}  // namespace
