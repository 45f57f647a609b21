#include "framework/conf_mapping.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <fstream>
#include <string>
#include <thread>

#include "tests/support/sys_fault.h"
#include "tests/support/temp_dir.h"
#include "tests/unit/framework/conf_fixture.h"

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kHour{3'600'000};

std::string Lines(std::size_t bytes) {
  std::string text;
  text.reserve(bytes + 16);
  for (int line = 0; text.size() < bytes; ++line) text += std::to_string(line) + ":text\n";
  text.resize(bytes);
  return text;
}

class ConfMappingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (conf_fixture::IsNeverMapped(folder_.path())) GTEST_SKIP() << "no file is mapped here";
  }
  std::unique_ptr<ConfMapping> Map(milliseconds longest = kHour) const {
    const Descriptor file(::open(path_.c_str(), O_RDONLY | O_CLOEXEC));
    return ConfMapping::Of(file.get(), longest);
  }
  // For a short time; on a busy machine it may be over before all is mapped.
  std::unique_ptr<ConfMapping> MapShortly() const {
    std::unique_ptr<ConfMapping> mapping;
    while (!mapping) mapping = Map(milliseconds(30));
    return mapping;
  }
  // Whether somebody could write into the file at this moment.
  bool MayBeWritten() const {
    const Descriptor file(::open(path_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    EXPECT_TRUE(file || errno == EWOULDBLOCK);
    return static_cast<bool>(file);
  }

  support::TempDir folder_;
  const std::string path_ = folder_ / "file";
};

TEST_F(ConfMappingTest, ShowsTheFileAndKeepsItFromBeingWritten) {
  for (const std::size_t bytes : {std::size_t{1}, std::size_t{4095}, std::size_t{4096},
                                  std::size_t{4097}, (std::size_t{2} << 20) + 1}) {
    SCOPED_TRACE(bytes);
    folder_.Write("file", Lines(bytes));
    {
      const auto mapping = Map();
      ASSERT_TRUE(mapping);
      EXPECT_TRUE(mapping->View() == Lines(bytes));
      EXPECT_EQ(mapping->stamp(), StampAt(path_));
      EXPECT_FALSE(mapping->IsCopied());
      EXPECT_FALSE(MayBeWritten());
    }
    EXPECT_TRUE(MayBeWritten());
  }
}

// Of each way to change a file in place.
TEST_F(ConfMappingTest, StaysTheSameForReadersWhenTheFileIsWritten) {
  const std::string before = Lines((std::size_t{3} << 20) + 5);
  const struct {
    const char* name;
    void (*change)(const std::string& path);
  } cases[] = {
      {"written anew", [](const std::string& path) { std::ofstream(path) << "new"; }},
      {"cut short", [](const std::string& path) { EXPECT_EQ(::truncate(path.c_str(), 1), 0); }},
      {"written into", [](const std::string& path) {
         const Descriptor file(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
         EXPECT_EQ(::pwrite(file.get(), "x", 1, 1 << 20), 1);
       }}};
  for (const auto& item : cases) {
    SCOPED_TRACE(item.name);
    folder_.Write("file", before);
    const auto mapping = Map();
    ASSERT_TRUE(mapping);
    const std::string_view view = mapping->View();
    std::atomic<bool> ended{false};
    std::atomic<int> looks{0};
    std::atomic<int> others{0};
    std::thread reader([&] {
      for (; !ended; ++looks) others += mapping->View() == before ? 0 : 1;
    });
    while (looks == 0) std::this_thread::yield();
    item.change(path_);
    EXPECT_TRUE(mapping->IsCopied());
    for (const int seen = looks; looks < seen + 2;) std::this_thread::yield();
    ended = true;
    reader.join();
    EXPECT_EQ(others, 0);
    EXPECT_EQ(mapping->View().data(), view.data());
    EXPECT_TRUE(view == before);
    EXPECT_FALSE(support::ReadFile(path_) == before);
  }
}

TEST_F(ConfMappingTest, LetsGoOfTheFileWhenItsTimeIsOver) {
  folder_.Write("file", Lines(100'000));
  const auto mapping = MapShortly();
  while (!mapping->IsCopied()) std::this_thread::yield();
  EXPECT_TRUE(MayBeWritten());
  folder_.Write("file", "new");
  EXPECT_TRUE(mapping->View() == Lines(100'000));
}

TEST_F(ConfMappingTest, IsNotHadWhereWritersCantBeHeldOff) {
  EXPECT_FALSE(ConfMapping::Of(-1));
  folder_.Write("file", "");
  EXPECT_FALSE(Map()) << "an empty file";
  folder_.Write("file", "abc");
  {
    const Descriptor writer(::open(path_.c_str(), O_WRONLY | O_CLOEXEC));
    EXPECT_FALSE(Map()) << "open for writing";
  }
  {
    support::SysFault fault;
    fault.FailCall("fcntl", EINVAL);
    EXPECT_FALSE(Map()) << "no leases";
  }
  EXPECT_TRUE(MayBeWritten()) << "a lease was left";
  EXPECT_TRUE(Map());
}

TEST_F(ConfMappingTest, IsNotHadOnOtherFileSystems) {
  const std::string place = folder_.MakeFolder("ramfs");
  if (::mount("none", place.c_str(), "ramfs", 0, nullptr) != 0) GTEST_SKIP() << "no mounts here";
  folder_.Write("ramfs/file", "abc");
  {
    const Descriptor file(::open((place + "/file").c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(WriterWatch(file.get()).state(), WriterWatch::State::kFree);
    EXPECT_FALSE(ConfMapping::Of(file.get()));
  }
  EXPECT_EQ(::umount(place.c_str()), 0);
}

TEST_F(ConfMappingTest, WhatIsForgottenComesBackFromTheFile) {
  constexpr std::size_t kLarge = std::size_t{2} << 20;
  const std::string text = Lines(3 * kLarge + 5);
  folder_.Write("file", text);
  const auto mapping = Map();
  ASSERT_TRUE(mapping);
  for (const std::size_t end : {std::size_t{5}, kLarge + 1, kLarge, 3 * kLarge - 1, text.size(),
                                static_cast<std::size_t>(-1)}) {
    SCOPED_TRACE(end);
    mapping->Forget(end);
    EXPECT_TRUE(mapping->View() == text);
  }
}

TEST_F(ConfMappingTest, ACopyForgetsNothing) {
  const std::string text = Lines(std::size_t{1} << 20);
  folder_.Write("file", text);
  const auto mapping = MapShortly();
  while (!mapping->IsCopied()) std::this_thread::yield();
  mapping->Forget(text.size());
  EXPECT_TRUE(mapping->View() == text);
}

TEST_F(ConfMappingTest, SurvivesTheRemovalOfTheFile) {
  const std::string text = Lines(std::size_t{1} << 20);
  folder_.Write("file", text);
  const auto mapping = Map();
  ASSERT_TRUE(mapping);
  ASSERT_EQ(::unlink(path_.c_str()), 0);
  mapping->Forget(text.size());
  EXPECT_TRUE(mapping->View() == text);
}

// A process that forks has no thread in its child that could end.
TEST_F(ConfMappingTest, AForkedChildLeavesTheParentsAlone) {
  folder_.Write("file", Lines(10'000));
  auto mapping = Map();
  ASSERT_TRUE(mapping);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    mapping.reset();
    ::_exit(7);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(WEXITSTATUS(status), 7);
  EXPECT_FALSE(MayBeWritten());
  EXPECT_TRUE(mapping->View() == Lines(10'000));
}

}  // namespace
