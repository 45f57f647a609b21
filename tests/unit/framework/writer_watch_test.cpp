#include "framework/writer_watch.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>

#include "framework/descriptor.h"
#include "tests/support/sys_fault.h"
#include "tests/support/temp_dir.h"

namespace {

TEST(WriterWatch, WhoOpensForWritingWaitsForTheWatchToEnd) {
  const support::TempDir folder;
  const std::string path = folder / "file";
  folder.Write("file", "abc");
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  std::thread writer;
  {
    const WriterWatch watch(file.get());
    ASSERT_EQ(watch.state(), WriterWatch::State::kFree);
    EXPECT_FALSE(watch.Disturbed());
    writer = std::thread([&] { folder.Write("file", "abcdef"); });
    while (!watch.Disturbed()) std::this_thread::yield();
    EXPECT_EQ(support::ReadFile(path), "abc");
  }
  writer.join();
  EXPECT_EQ(support::ReadFile(path), "abcdef");
}

TEST(WriterWatch, TellsWhoHasTheFileOpenForWriting) {
  const support::TempDir folder;
  folder.Write("file", "abc");
  const Descriptor file(::open((folder / "file").c_str(), O_RDONLY | O_CLOEXEC));
  const Descriptor writer(::open((folder / "file").c_str(), O_WRONLY | O_CLOEXEC));
  const WriterWatch watch(file.get());
  EXPECT_EQ(watch.state(), WriterWatch::State::kWritten);
  EXPECT_FALSE(watch.Disturbed());
}

TEST(WriterWatch, KnowsNothingWithoutLeases) {
  const support::TempDir folder;
  folder.Write("file", "abc");
  const Descriptor file(::open((folder / "file").c_str(), O_RDONLY | O_CLOEXEC));
  support::SysFault fault;
  fault.FailCall("fcntl", EINVAL);
  EXPECT_EQ(WriterWatch(file.get()).state(), WriterWatch::State::kUnknown);
}

}  // namespace
