#include "mgr_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <set>
#include <vector>

#include "mgr_err.h"
#include "tests/support/sys_fault.h"
#include "tests/support/temp_dir.h"

namespace {

using support::TempDir;
using ::testing::HasSubstr;

// The text of the "file" error that `action` throws, and a failure when it throws none.
std::string FileErrorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const mgr_err::Error& error) {
    EXPECT_EQ("file", error.type());
    return error.what();
  }
  ADD_FAILURE() << "no error";
  return {};
}

struct stat StatusOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(0, ::stat(path.c_str(), &status)) << path;
  return status;
}

TEST(MgrFileExists, IsTrueForEveryKindAndFollowsLinks) {
  const TempDir dir;
  dir.Write("file", "");
  dir.MakeFolder("folder");
  ASSERT_EQ(0, ::symlink("file", (dir / "link").c_str()));
  ASSERT_EQ(0, ::symlink("nothing", (dir / "dangling").c_str()));
  ASSERT_EQ(0, ::mkfifo((dir / "pipe").c_str(), 0600));

  EXPECT_TRUE(mgr_file::Exists(dir / "file"));
  EXPECT_TRUE(mgr_file::Exists(dir / "folder"));
  EXPECT_TRUE(mgr_file::Exists(dir / "link"));
  EXPECT_TRUE(mgr_file::Exists(dir / "pipe"));
  EXPECT_FALSE(mgr_file::Exists(dir / "dangling"));
  EXPECT_FALSE(mgr_file::Exists(dir / "nothing"));
  EXPECT_FALSE(mgr_file::Exists(dir / "nothing/below"));
  EXPECT_FALSE(mgr_file::Exists(dir / "file/below"));
  EXPECT_FALSE(mgr_file::Exists(""));
}

TEST(MgrFileExists, IsFalseWhereALinkLeadsNowhere) {
  const TempDir dir;
  ASSERT_EQ(0, ::symlink("loop", (dir / "loop").c_str()));
  ASSERT_EQ(0, ::symlink(std::string(300, 'x').c_str(), (dir / "long").c_str()));

  EXPECT_FALSE(mgr_file::Exists(dir / "loop"));
  EXPECT_FALSE(mgr_file::Exists(dir / "long"));
}

// A test run as root must give up its rights, since root may search everything.
TEST(MgrFileExists, ThrowsBehindADirectoryThatCannotBeSearched) {
  const TempDir dir;
  dir.Write("closed/file", "");
  ASSERT_EQ(0, ::chmod((dir / "closed").c_str(), 0000));
  const uid_t user = ::geteuid();
  if (user == 0) {
    ASSERT_EQ(0, ::chmod(dir.path().c_str(), 0755));
    ASSERT_EQ(0, ::seteuid(65534));
  }

  const std::string text = FileErrorOf([&] { mgr_file::Exists(dir / "closed/file"); });

  ASSERT_EQ(0, ::seteuid(user));
  ASSERT_EQ(0, ::chmod((dir / "closed").c_str(), 0700));
  EXPECT_THAT(text, HasSubstr("Permission denied"));
}

TEST(MgrFileMkDir, GivesExactlyTheModeWhateverTheUmask) {
  const TempDir dir;
  const mode_t old_mask = ::umask(0077);
  for (const mode_t mode : {0700U, 0600U, 0755U, 02770U, 01777U, 0U}) {
    SCOPED_TRACE(mode);
    const std::string path = dir / std::to_string(mode);
    mgr_file::MkDir(path, mgr_file::Attrs(mode, ::getuid(), ::getgid()));
    EXPECT_EQ(mode, StatusOf(path).st_mode & 07777);
  }
  ::umask(old_mask);
}

TEST(MgrFileMkDir, GivesTheOwner) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root may give a directory away";
  }
  const TempDir dir;
  mgr_file::MkDir(dir / "new", mgr_file::Attrs(0750, 12345, 23456));

  const struct stat status = StatusOf(dir / "new");
  EXPECT_EQ(12345U, status.st_uid);
  EXPECT_EQ(23456U, status.st_gid);
  EXPECT_EQ(0750U, status.st_mode & 07777);
}

TEST(MgrFileMkDir, LeavesWhatIsAtThePathAlone) {
  const TempDir dir;
  dir.Write("file", "content");
  dir.Write("folder/inside", "x");
  ASSERT_EQ(0, ::symlink("nothing", (dir / "dangling").c_str()));
  for (const char* name : {"file", "folder", "dangling"}) {
    SCOPED_TRACE(name);
    const std::string text = FileErrorOf(
        [&] { mgr_file::MkDir(dir / name, mgr_file::Attrs(0711, ::getuid(), ::getgid())); });
    EXPECT_EQ("file: " + dir / name + ": mkdir: File exists", text);
  }
  EXPECT_EQ("content", dir.Read("file"));
  EXPECT_EQ("x", dir.Read("folder/inside"));
  EXPECT_FALSE(mgr_file::Exists(dir / "nothing"));
}

TEST(MgrFileMkDir, NeedsTheParent) {
  const TempDir dir;
  EXPECT_THAT(FileErrorOf([&] {
                mgr_file::MkDir(dir / "a/b", mgr_file::Attrs(0700, ::getuid(), ::getgid()));
              }),
              HasSubstr("No such file or directory"));
}

// Without its name in the parent it would be lost with the power.
TEST(MgrFileMkDir, SyncsTheDirectoryAndItsParent) {
  const support::TempDir dir;
  support::SysFault fault;
  std::size_t syncs = 0;
  fault.OnCall([&](std::string_view call, std::size_t) { syncs += call == "fsync" ? 1U : 0U; });
  const mgr_file::Attrs attrs(0700, ::geteuid(), ::getegid());
  mgr_file::MkDir(dir / "made", attrs);
  EXPECT_EQ(2U, syncs);
  fault.FailCall("fsync", EIO);
  EXPECT_THROW(mgr_file::MkDir(dir / "refused", attrs), mgr_err::Error);
  EXPECT_FALSE(std::filesystem::exists(dir / "refused"));
}

TEST(MgrFileMkDir, LeavesNothingWhenTheOwnerIsRefused) {
  const TempDir dir;
  const uid_t user = ::geteuid();
  if (user == 0) {
    ASSERT_EQ(0, ::chmod(dir.path().c_str(), 0777));
    ASSERT_EQ(0, ::seteuid(65534));
  }

  const std::string text =
      FileErrorOf([&] { mgr_file::MkDir(dir / "new", mgr_file::Attrs(0700, 1, 1)); });

  ASSERT_EQ(0, ::seteuid(user));
  EXPECT_THAT(text, HasSubstr("chown: Operation not permitted"));
  EXPECT_FALSE(mgr_file::Exists(dir / "new"));
}

TEST(MgrFileConcatPath, PutsOneSlashBetween) {
  struct Case {
    const char* name;
    std::string directory;
    std::string file;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"plain", "/etc/dovecot", "a.conf", "/etc/dovecot/a.conf"},
      {"slash behind", "/etc/dovecot/", "a.conf", "/etc/dovecot/a.conf"},
      {"slashes behind", "/etc/dovecot///", "a.conf", "/etc/dovecot/a.conf"},
      {"root", "/", "a.conf", "/a.conf"},
      {"root twice", "//", "a.conf", "/a.conf"},
      {"no directory", "", "a.conf", "a.conf"},
      {"no directory, absolute name", "", "/a.conf", "/a.conf"},
      {"slash before the name", "/etc", "/a.conf", "/etc/a.conf"},
      {"relative", "etc", "a.conf", "etc/a.conf"},
      {"no name", "/etc", "", "/etc/"},
      {"nothing", "", "", ""},
      {"inner slashes stay", "/a//b", "c//d", "/a//b/c//d"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.expected, mgr_file::ConcatPath(c.directory, c.file));
  }
}

TEST(MgrFileSplitPath, GivesDirectoryAndName) {
  struct Case {
    const char* name;
    std::string path;
    std::string directory;
    std::string file;
  };
  const std::vector<Case> cases = {
      {"plain", "/etc/dovecot/a.conf", "/etc/dovecot", "a.conf"},
      {"source file", "email/email_dovecot", "email", "email_dovecot"},
      {"no directory", "a.conf", "", "a.conf"},
      {"in the root", "/a.conf", "/", "a.conf"},
      {"two slashes", "/etc//a.conf", "/etc", "a.conf"},
      {"two slashes in the root", "//a.conf", "/", "a.conf"},
      {"slash behind", "/etc/", "/etc", ""},
      {"root", "/", "/", ""},
      {"nothing", "", "", ""},
      {"dots", "../a", "..", "a"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const auto [directory, file] = mgr_file::SplitPath(c.path);
    EXPECT_EQ(c.directory, directory);
    EXPECT_EQ(c.file, file);
  }
}

TEST(MgrFileReadE, GivesEveryByte) {
  const TempDir dir;
  std::string all;
  for (int byte = 0; byte < 256; ++byte) {
    all += static_cast<char>(byte);
  }
  for (const std::string& content :
       {std::string(), std::string("x"), all, std::string(100000, 'x') + "\n"}) {
    SCOPED_TRACE(content.size());
    EXPECT_EQ(content, mgr_file::ReadE(dir.Write("file", content)));
  }
}

// Such a file has a length of 0 before it is read.
TEST(MgrFileReadE, ReadsAFileThatHidesItsLength) {
  const std::string content = mgr_file::ReadE("/proc/self/status");
  EXPECT_THAT(content, HasSubstr("Pid:\t" + std::to_string(::getpid())));
  EXPECT_EQ('\n', content.back());
}

TEST(MgrFileReadE, FollowsALink) {
  const TempDir dir;
  dir.Write("file", "content");
  ASSERT_EQ(0, ::symlink("file", (dir / "link").c_str()));
  EXPECT_EQ("content", mgr_file::ReadE(dir / "link"));
}

TEST(MgrFileReadE, RefusesWhatIsNoRegularFileWithoutWaiting) {
  const TempDir dir;
  ASSERT_EQ(0, ::mkfifo((dir / "pipe").c_str(), 0600));
  dir.MakeFolder("folder");
  for (const std::string& path : {dir / "pipe", dir / "folder", std::string("/dev/zero")}) {
    SCOPED_TRACE(path);
    EXPECT_EQ("file: " + path + ": not a regular file",
              FileErrorOf([&] { mgr_file::ReadE(path); }));
  }
}

TEST(MgrFileReadE, NamesTheMissingFile) {
  const TempDir dir;
  EXPECT_EQ("file: " + dir / "nothing" + ": open: No such file or directory",
            FileErrorOf([&] { mgr_file::ReadE(dir / "nothing"); }));
}

TEST(MgrFileRemoveFile, RemovesFilesAndLinksOnly) {
  const TempDir dir;
  dir.Write("target", "content");
  dir.Write("file", "");
  dir.MakeFolder("folder");
  ASSERT_EQ(0, ::symlink("target", (dir / "link").c_str()));

  EXPECT_TRUE(mgr_file::RemoveFile(dir / "file"));
  EXPECT_FALSE(mgr_file::Exists(dir / "file"));
  EXPECT_FALSE(mgr_file::RemoveFile(dir / "file")) << "it is gone already";
  EXPECT_TRUE(mgr_file::RemoveFile(dir / "link"));
  EXPECT_EQ("content", dir.Read("target"));
  EXPECT_FALSE(mgr_file::RemoveFile(dir / "folder"));
  EXPECT_TRUE(mgr_file::Exists(dir / "folder"));
}

TEST(MgrFileInfo, ModeSaysWhetherLinksAreFollowed) {
  const TempDir dir;
  dir.Write("file", "");
  ASSERT_EQ(0, ::symlink("file", (dir / "link").c_str()));
  ASSERT_EQ(0, ::symlink("nothing", (dir / "dangling").c_str()));
  struct Case {
    const char* name;
    bool missed_as_link;
    bool missed_behind_links;
  };
  const std::vector<Case> cases = {
      {"file", false, false},    {"link", false, false}, {"dangling", false, true},
      {"nothing", true, true},   {"file/x", true, true}, {"", false, false},
      {"nothing/x", true, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.missed_as_link, mgr_file::Info(dir / c.name, 1).IsMissed());
    EXPECT_EQ(c.missed_behind_links, mgr_file::Info(dir / c.name, 2).IsMissed());
  }
}

TEST(MgrFileInfo, TellsTheStateAtConstruction) {
  const TempDir dir;
  dir.Write("file", "");
  const mgr_file::Info info(dir / "file", 2);
  ASSERT_TRUE(mgr_file::RemoveFile(dir / "file"));
  EXPECT_FALSE(info.IsMissed());
}

TEST(MgrFileInfo, RefusesAnotherMode) {
  for (const int mode : {-1, 0, 3}) {
    SCOPED_TRACE(mode);
    try {
      mgr_file::Info("/", mode);
      ADD_FAILURE() << "no error";
    } catch (const mgr_err::Error& error) {
      EXPECT_EQ("internal", error.type());
    }
  }
}

TEST(MgrFileInfo, FollowedLinksThatLeadNowhereCountAsMissing) {
  const TempDir dir;
  const std::pair<const char*, std::string> cases[] = {
      {"circle", "circle"}, {"too long", std::string(300, 'n')}, {"dangling", "none"}};
  for (const auto& [name, target] : cases) {
    SCOPED_TRACE(name);
    ASSERT_EQ(0, ::symlink(target.c_str(), (dir / name).c_str()));
    EXPECT_FALSE(mgr_file::Info(dir / name, 1).IsMissed());
    EXPECT_TRUE(mgr_file::Info(dir / name, 2).IsMissed());
  }
}

TEST(MgrFileInfo, ThrowsWhenItCannotBeTold) {
  const TempDir dir;
  const std::string path = dir / std::string(300, 'n');
  EXPECT_THAT(FileErrorOf([&] { mgr_file::Info(path, 1); }), HasSubstr("lstat"));
}

TEST(MgrFileDir, YieldsEachEntryOnceWithoutTheDots) {
  const TempDir dir;
  std::set<std::string> expected;
  for (int i = 0; i < 500; ++i) {
    expected.insert("file" + std::to_string(i));
    dir.Write("file" + std::to_string(i), "");
  }
  dir.Write(".hidden", "");
  dir.MakeFolder("folder");
  expected.insert({".hidden", "folder"});

  std::set<std::string> seen;
  mgr_file::Dir walk(dir.path());
  while (walk.Read()) {
    EXPECT_TRUE(seen.insert(walk.name()).second) << walk.name();
    EXPECT_EQ(dir / walk.name(), walk.FullName());
  }

  EXPECT_EQ(expected, seen);
  EXPECT_FALSE(walk.Read()) << "stays at the end";
}

TEST(MgrFileDir, EmptyAndMissingDirectoriesHaveNoEntries) {
  const TempDir dir;
  EXPECT_FALSE(mgr_file::Dir(dir.path()).Read());
  EXPECT_FALSE(mgr_file::Dir(dir / "nothing").Read());
  EXPECT_FALSE(mgr_file::Dir(dir / "nothing/below").Read());
}

TEST(MgrFileDir, ThrowsForWhatIsNoDirectory) {
  const TempDir dir;
  dir.Write("file", "");
  EXPECT_EQ("file: " + dir / "file" + ": opendir: Not a directory",
            FileErrorOf([&] { mgr_file::Dir walk(dir / "file"); }));
}

TEST(MgrFileDir, ExtensionNeedsANameBeforeIt) {
  struct Case {
    const char* file;
    bool has_conf;
  };
  const std::vector<Case> cases = {
      {"example.org.conf", true}, {".conf", false},  {"conf", false},
      {"a.conf~", false},         {"a.CONF", false}, {"..conf", true},
      {"a.conf.bak", false},      {"aconf", false},  {"a.conf", true},
  };
  const TempDir dir;
  std::set<std::string> expected;
  for (const Case& c : cases) {
    dir.Write(c.file, "");
    if (c.has_conf) {
      expected.insert(c.file);
    }
  }

  std::set<std::string> seen;
  for (mgr_file::Dir walk(dir.path()); walk.Read();) {
    if (walk.HasExt(".conf")) {
      seen.insert(walk.name());
    }
  }

  EXPECT_EQ(expected, seen);
}

TEST(MgrFileDir, ChildrenDoNotInheritTheDescriptor) {
  const TempDir dir;
  dir.Write("file", "");
  mgr_file::Dir walk(dir.path());
  ASSERT_TRUE(walk.Read());
  // The shell's own list of descriptors.
  const std::string command = "test -z \"$(ls -l /proc/$$/fd | grep -F '" + dir.path() + "')\"";
  EXPECT_EQ(0, std::system(command.c_str()));
}

}  // namespace
