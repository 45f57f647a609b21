#include "framework/file_metadata.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "framework/descriptor.h"
#include "framework/sys.h"
#include "tests/support/sys_fault.h"
#include "tests/support/temp_dir.h"
#include "tests/unit/framework/conf_fixture.h"

namespace {

using conf_fixture::ErrorOf;

constexpr const char* kAcl = "system.posix_acl_access";

/// An ACL in the system's form: version 2, then tag, permissions and number of each entry.
std::string Acl(std::uint16_t mask, std::uint32_t user, std::uint16_t user_may) {
  struct Entry {
    std::uint16_t tag, may;
    std::uint32_t id;
  };
  const std::vector<Entry> entries = {
      {0x01, 6, ~0U}, {0x02, user_may, user}, {0x04, 4, ~0U}, {0x10, mask, ~0U}, {0x20, 0, ~0U}};
  std::string acl("\2\0\0\0", 4);
  for (const Entry& entry : entries) {
    acl.append(reinterpret_cast<const char*>(&entry), sizeof(entry));
  }
  return acl;
}

std::string Attribute(const std::string& path, const char* name) {
  std::array<char, 1000> value;
  const ssize_t size = ::getxattr(path.c_str(), name, value.data(), value.size());
  return size < 0 ? "none" : std::string(value.data(), static_cast<std::size_t>(size));
}

void SetAttribute(const std::string& path, const char* name, const std::string& value) {
  ASSERT_EQ(::setxattr(path.c_str(), name, value.data(), value.size(), 0), 0) << name;
}

struct stat InfoOf(const std::string& path) {
  struct stat info {};
  EXPECT_EQ(::stat(path.c_str(), &info), 0);
  return info;
}

class FileMetadataTest : public ::testing::Test {
 protected:
  void CopyAll() {
    const Descriptor from(::open(old_.c_str(), O_RDONLY | O_CLOEXEC));
    const Descriptor to(MakeNew());
    file_metadata::Copy(from.get(), InfoOf(old_), to.get(), old_);
  }
  int MakeNew() const {
    return ::open(new_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  }

  support::TempDir folder_;
  const std::string old_ = folder_.Write("old", "x");
  const std::string new_ = folder_ / "new";
};

/// Everything about a file that a replacement must keep, in words.
std::string Metadata(const std::string& path) {
  const struct stat info = InfoOf(path);
  std::string text = std::to_string(info.st_mode) + " " + std::to_string(info.st_uid) + " " +
                     std::to_string(info.st_gid);
  for (const char* name : {kAcl, "user.note", "user.empty", "trusted.note"}) {
    text += std::string(" ") + name + "=" + Attribute(path, name);
  }
  return text;
}

/// Makes the file anew with each combination of metadata, replaces it, and counts: how many
/// combinations there were and how many of them were kept exactly.
struct Combinations {
  template <class Replace>
  Combinations(const support::TempDir& folder, const std::string& content, Replace replace) {
    const std::string path = folder / "old";
    for (const mode_t mode : {0600U, 0640U, 0644U, 0400U, 06750U}) {
      for (int kind = 0; kind < 8; ++kind) {
        ::unlink(path.c_str());
        folder.Write("old", content);
        if ((kind & 1) != 0) {
          EXPECT_EQ(::chown(path.c_str(), 1234, 2345), 0);
        }
        EXPECT_EQ(::chmod(path.c_str(), mode), 0);
        if ((kind & 2) != 0) SetAttribute(path, kAcl, Acl(4, 1500, 6));
        if ((kind & 4) != 0) {
          SetAttribute(path, "user.note", "mine");
          SetAttribute(path, "user.empty", "");
          SetAttribute(path, "trusted.note", std::string("\0\1", 2));
        }
        const std::string before = Metadata(path);
        const std::string after = replace();
        ++tried;
        if (before == after) ++kept;
        if (before != after && first_lost.empty()) first_lost = before + " became " + after;
      }
    }
  }
  int tried = 0;
  int kept = 0;
  std::string first_lost;
};

TEST_F(FileMetadataTest, EveryCombinationOfModeOwnerAclAndAttributesIsKept) {
  const Combinations copied(folder_, "x", [this] {
    ::unlink(new_.c_str());
    CopyAll();
    return Metadata(new_);
  });
  EXPECT_EQ(copied.kept, copied.tried) << copied.first_lost;
  EXPECT_GE(copied.tried, 30);
}

TEST_F(FileMetadataTest, ASaveKeepsEveryCombination) {
  int round = 0;
  const Combinations saved(folder_, conf_fixture::Line("a") + "\n", [&] {
    const auto users = conf_fixture::UsersConfig::Open(old_);
    conf_fixture::SetPassword(users, "a", "{X}" + std::to_string(++round));
    return Metadata(old_);
  });
  std::printf("combinations of metadata: %d, kept by a save: %d\n", saved.tried, saved.kept);
  EXPECT_EQ(saved.kept, saved.tried) << saved.first_lost;
  EXPECT_GE(saved.tried, 30);
}

// What the others are measured by: a new file with the old one's mode, renamed over it.
TEST_F(FileMetadataTest, ANaiveReplacementLosesMostCombinations) {
  const Combinations naive(folder_, "x", [this] {
    ::unlink(new_.c_str());
    const Descriptor to(MakeNew());
    EXPECT_EQ(::fchmod(to.get(), InfoOf(old_).st_mode & 07777), 0);
    EXPECT_EQ(::rename(new_.c_str(), old_.c_str()), 0);
    return Metadata(old_);
  });
  std::printf("combinations of metadata: %d, kept by a naive replacement: %d\n", naive.tried,
              naive.kept);
  EXPECT_LE(naive.kept, naive.tried / 4);
}

TEST_F(FileMetadataTest, AnAclThatTheDirectoryHandsOnIsDropped) {
  SetAttribute(folder_.path(), "system.posix_acl_default", Acl(7, 1500, 6));
  CopyAll();
  EXPECT_EQ(Attribute(new_, kAcl), "none");
  EXPECT_EQ(InfoOf(new_).st_mode, InfoOf(old_).st_mode);
}

// What others may do with the new file before it is finished, they could do with the old one.
TEST_F(FileMetadataTest, AtNoMomentMorePeopleCanReadTheNewFile) {
  ASSERT_EQ(::chown(old_.c_str(), 1234, 2345), 0);
  ASSERT_EQ(::chmod(old_.c_str(), 0640), 0);
  SetAttribute(folder_.path(), "system.posix_acl_default", Acl(7, 1500, 6));
  support::SysFault watch;
  int looks = 0;
  watch.OnCall([&](std::string_view, std::size_t) {
    if (::access(new_.c_str(), F_OK) != 0) return;
    const struct stat now = InfoOf(new_);
    EXPECT_EQ(now.st_mode & 0007U, 0U);
    EXPECT_TRUE((now.st_mode & 0070U) == 0 || now.st_gid == 2345U);
    ++looks;
  });
  CopyAll();
  EXPECT_GT(looks, 3);
}

TEST_F(FileMetadataTest, ANewFileIsForDovecotsGroupWhereThereIsOne) {
  const Descriptor to(MakeNew());
  SetAttribute(new_, kAcl, Acl(6, 1500, 6));
  file_metadata::SetFresh(to.get(), new_);
  const struct group* dovecot = ::getgrnam("dovecot");
  const struct stat is = InfoOf(new_);
  EXPECT_EQ(is.st_mode & 07777U, dovecot == nullptr ? 0600U : 0640U);
  if (dovecot != nullptr) {
    EXPECT_EQ(is.st_gid, dovecot->gr_gid);
  }
  EXPECT_EQ(Attribute(new_, kAcl), "none");
}

TEST_F(FileMetadataTest, WhatCannotBeKeptIsAnErrorThatNamesIt) {
  ASSERT_EQ(::chown(old_.c_str(), 1234, 2345), 0);
  SetAttribute(old_, "user.note", "mine");
  const struct {
    const char* call;
    int error;
    const char* text;
  } cases[] = {
      {"fchown", EPERM, "its owner can't be kept, the file is unchanged"},
      {"fchmod", EIO, "fchmod: Input/output error; the file is unchanged"},
      {"fsetxattr", ENOSPC, "attribute user.note can't be kept, the file is unchanged"},
      {"fgetxattr", EIO, "fgetxattr: Input/output error"},
      {"flistxattr", EIO, "flistxattr: Input/output error"},
      {"fremovexattr", EIO, "fremovexattr: Input/output error"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.call);
    ::unlink(new_.c_str());
    support::SysFault fault;
    fault.FailCall(test.call, test.error);
    const std::string error = ErrorOf([this] { CopyAll(); });
    EXPECT_NE(error.find(test.text), std::string::npos) << error;
  }
}

TEST_F(FileMetadataTest, FileSystemsWithoutAttributesAreFine) {
  support::SysFault fault;
  fault.FailCall("flistxattr", ENOTSUP);
  CopyAll();
  fault.FailCall("fremovexattr", ENOTSUP);
  CopyAll();
}

}  // namespace
