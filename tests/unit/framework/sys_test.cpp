#include "framework/sys.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "framework/descriptor.h"
#include "tests/support/sys_fault.h"
#include "tests/support/temp_dir.h"
#include "tests/unit/framework/conf_fixture.h"

namespace {

using conf_fixture::ErrorOf;

TEST(Sys, ACallHappensUnlessTheHookRefusesIt) {
  const support::TempDir folder;
  const std::string path = folder.Write("file", "abc");
  support::SysFault fault;
  EXPECT_TRUE(Descriptor(sys::Open(AT_FDCWD, path.c_str(), O_RDONLY)));
  fault.FailCall("open", EIO);
  EXPECT_EQ(sys::Open(AT_FDCWD, path.c_str(), O_RDONLY), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_TRUE(fault.Failed());
  fault.FailCall("open", 0);
  EXPECT_TRUE(Descriptor(sys::Open(AT_FDCWD, path.c_str(), O_RDONLY)));
}

TEST(Sys, InterruptedCallsAreMadeAgainButNotForEver) {
  const support::TempDir folder;
  const std::string path = folder.Write("file", "abc");
  support::SysFault fault;
  fault.FailNumber(1, EINTR, false);
  EXPECT_TRUE(Descriptor(sys::Open(AT_FDCWD, path.c_str(), O_RDONLY)));
  EXPECT_EQ(fault.Calls(), 2U);
  fault.FailNumber(1, EINTR, true);
  EXPECT_EQ(sys::Open(AT_FDCWD, path.c_str(), O_RDONLY), -1);
  EXPECT_EQ(errno, EINTR);
}

TEST(Sys, TheHookMayCutAWrite) {
  const support::TempDir folder;
  const std::string path = folder.Write("file", "");
  support::SysFault fault;
  fault.CutWrites(2);
  const Descriptor file(sys::Open(AT_FDCWD, path.c_str(), O_WRONLY));
  char text[] = "abcdef";
  const struct iovec pieces[] = {{text, 3}, {text + 3, 3}};
  EXPECT_EQ(sys::WriteV(file.get(), pieces, 2), 2);
  EXPECT_EQ(support::ReadFile(path), "ab");
}

TEST(Sys, OpenedFilesAreClosedOnExec) {
  const support::TempDir folder;
  const Descriptor file(sys::Open(AT_FDCWD, folder.Write("file", "").c_str(), O_RDONLY));
  EXPECT_EQ(::fcntl(file.get(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST(Sys, AnErrorNamesCallPathReasonAndWayOut) {
  const struct {
    int error;
    const char* text;
  } cases[] = {
      {EIO, "file: /a: write: Input/output error; unchanged"},
      {ENOSPC, "file: /a: write: No space left on device (the disk is full); unchanged"},
      {EBUSY,
       "file: /a: write: Device or resource busy (a file that is mounted by itself can't be "
       "replaced; mount its directory instead); unchanged"},
      {EPERM,
       "file: /a: write: Operation not permitted (if you are root: is the file immutable? lsattr "
       "shows it, chattr -i ends it); unchanged"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.error);
    errno = test.error;
    EXPECT_EQ(ErrorOf([] { sys::Fail("write", "/a", "unchanged"); }), test.text);
  }
}

}  // namespace
