#include "framework/file_steps.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <string_view>
#include <vector>

#include "framework/descriptor.h"
#include "mgr_err.h"
#include "tests/support/sys_fault.h"
#include "tests/support/temp_dir.h"

namespace {

using mgr_file::Attrs;

std::string ErrorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const mgr_err::Error& error) {
    return error.what();
  }
  return "nothing was thrown";
}

class FileStepsTest : public testing::Test {
 protected:
  struct stat State() const {
    struct stat state = {};
    EXPECT_EQ(0, ::fstat(file.get(), &state));
    return state;
  }

  support::TempDir directory;
  const Descriptor file{::open((directory / "file").c_str(), O_WRONLY | O_CREAT, 0600)};
};

TEST_F(FileStepsTest, ModeAndOwnerAreSetExactly) {
  const uid_t uid = ::geteuid() == 0 ? 54321 : ::geteuid();
  // With the bits that a change of the owner clears.
  for (const mode_t mode : {0600U, 0U, 0777U, 06755U}) {
    SCOPED_TRACE(testing::Message() << std::oct << mode);
    file_steps::SetAttrs(file.get(), Attrs(mode, uid, ::getegid()), "f");
    EXPECT_EQ(mode, State().st_mode & 07777U);
    EXPECT_EQ(uid, State().st_uid);
    EXPECT_EQ(::getegid(), State().st_gid);
  }
}

TEST_F(FileStepsTest, ARefusalNamesTheFileAndTheStep) {
  support::SysFault fault;
  fault.FailCall("fchown", EIO);
  EXPECT_EQ("file: f: chown: Input/output error",
            ErrorOf([&] { file_steps::SetAttrs(file.get(), Attrs(0600, 0, 0), "f"); }));
  fault.FailCall("fchmod", EIO);
  EXPECT_EQ("file: f: chmod: Input/output error", ErrorOf([&] {
              file_steps::SetAttrs(file.get(), Attrs(0600, ::geteuid(), ::getegid()), "f");
            }));
}

TEST_F(FileStepsTest, ADirectoryIsSyncedWhereThatIsPossible) {
  const Descriptor fd(::open(directory.path().c_str(), O_RDONLY | O_DIRECTORY));
  support::SysFault fault;
  file_steps::SyncDirectory(fd.get(), "d");
  EXPECT_EQ(1U, fault.Calls());
  fault.FailCall("fsync", EINVAL);
  file_steps::SyncDirectory(fd.get(), "d");
  EXPECT_TRUE(fault.Failed());
  fault.FailCall("fsync", EIO);
  EXPECT_EQ("file: d: fsync: Input/output error",
            ErrorOf([&] { file_steps::SyncDirectory(fd.get(), "d"); }));
}

TEST_F(FileStepsTest, ADirectoryThatIsNotOpenIsSyncedToo) {
  support::SysFault fault;
  file_steps::SyncDirectoryAt(directory.path(), "d");
  EXPECT_EQ(2U, fault.Calls());
  fault.FailCall("fsync", EIO);
  EXPECT_EQ("file: d: fsync: Input/output error",
            ErrorOf([&] { file_steps::SyncDirectoryAt(directory.path(), "d"); }));
  EXPECT_EQ("file: d: open: No such file or directory",
            ErrorOf([&] { file_steps::SyncDirectoryAt(directory / "none", "d"); }));
}

TEST_F(FileStepsTest, AllIsWrittenHoweverLittleTheSystemTakesAtATime) {
  support::SysFault fault;
  fault.CutWrites(2);
  file_steps::WriteAll(file.get(), "abcdefg", "f");
  EXPECT_EQ(4U, fault.Calls());
  EXPECT_EQ("abcdefg", directory.Read("file"));
}

TEST_F(FileStepsTest, AWriteThatFailsNamesTheFileAndItsState) {
  support::SysFault fault;
  fault.FailCall("write", EIO);
  EXPECT_EQ("file: f: write: Input/output error; it is unchanged",
            ErrorOf([&] { file_steps::WriteAll(file.get(), "abc", "f", "it is unchanged"); }));
}

TEST(FileSteps, TheDirectoryOfAPathIsWhereItsEntryStands) {
  const struct {
    const char* path;
    const char* directory;
  } cases[] = {{"/a/b/c", "/a/b"}, {"/a", "/"}, {"a/b", "a"}, {"a", "."}, {"/", "/"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    EXPECT_EQ(c.directory, file_steps::DirectoryOf(c.path));
  }
}

}  // namespace
