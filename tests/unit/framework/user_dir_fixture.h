#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include "framework/user_dir.h"
#include "mgr_err.h"
#include "tests/support/temp_dir.h"

// What the tests of users' directories have in common.
namespace user_dir_test {

constexpr uid_t kUser = 54321;
constexpr uid_t kOther = 54322;
inline const mgr_file::Attrs kAttrs(0700, kUser, kUser);

inline std::string ErrorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const mgr_err::Error& error) {
    return error.what();
  }
  return "nothing was thrown";
}

inline struct stat StateOf(const std::string& path) {
  struct stat state = {};
  EXPECT_EQ(0, ::lstat(path.c_str(), &state)) << path;
  return state;
}

// Each directory is synced: on a file system in memory thousands of them are quick.
class TemporaryFilesInMemory {
 public:
  TemporaryFilesInMemory() {
    if (std::filesystem::is_directory("/dev/shm")) {
      ::setenv("TMPDIR", "/dev/shm", 1);
    }
  }
  ~TemporaryFilesInMemory() { ::unsetenv("TMPDIR"); }
};

inline void MakeLink(const std::string& target, const std::string& path) {
  ASSERT_EQ(0, ::symlink(target.c_str(), path.c_str()));
  ASSERT_EQ(0, ::lchown(path.c_str(), kUser, kUser));
}

inline void MakeForeign(const std::string& path, uid_t uid) {
  ASSERT_EQ(0, ::mkdir(path.c_str(), 0777));
  ASSERT_EQ(0, ::chown(path.c_str(), uid, uid));
}

// A home of kUser beside a folder of the system that nobody may get at through the home.
class UserDirTest : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) {
      GTEST_SKIP() << "gives files to other users: needs root";
    }
    ::chmod(tree.path().c_str(), 0755);
    home = MakeOwned("home");
    outside = tree.MakeFolder("outside");
    ::chmod(outside.c_str(), 0777);
  }

  std::string MakeOwned(const std::string& name, uid_t uid = kUser) const {
    const std::string path = tree.MakeFolder(name);
    EXPECT_EQ(0, ::chown(path.c_str(), uid, uid));
    return path;
  }
  mgr_file::safe::Folder At(const std::string& path) const {
    return {home, home + path, kUser, kUser};
  }
  std::string MakeError(const std::string& path) const {
    return ErrorOf([&] { user_dir::MakePath(At(path), kAttrs); });
  }

  const TemporaryFilesInMemory in_memory;
  support::TempDir tree;
  std::string home;
  std::string outside;
};

}  // namespace user_dir_test
