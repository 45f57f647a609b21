#include "framework/user_dir.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "tests/support/sys_fault.h"
#include "tests/unit/framework/user_dir_fixture.h"

namespace {

namespace fs = std::filesystem;
using mgr_file::Attrs;
using mgr_file::safe::Folder;
using testing::HasSubstr;
using testing::SizeIs;
using namespace user_dir_test;

class TestOwner : public mgr_file::safe::Owner {
 public:
  explicit TestOwner(std::string home) : home_(std::move(home)) {}
  uid_t OwnerUid() const override { return kUser; }
  gid_t OwnerGid() const override { return kUser; }
  std::string OwnerHome() const override { return home_; }

 private:
  std::string home_;
};

bool IsThere(const std::string& path) {
  return fs::symlink_status(path).type() != fs::file_type::not_found;
}

std::size_t OpenDescriptors() {
  const fs::directory_iterator entries("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(entries, {}));
}

class Umask {
 public:
  explicit Umask(mode_t mask) : old_(::umask(mask)) {}
  ~Umask() { ::umask(old_); }

 private:
  mode_t old_;
};

mode_t ModeOf(const std::string& path) { return StateOf(path).st_mode & 07777U; }

TEST(UserDirPath, IsBroughtIntoItsNormalForm) {
  struct Case {
    const char* name;
    const char* path;
    const char* normal;
  };
  const Case cases[] = {
      {"as it stands", "/home/u/.maildir", "/home/u/.maildir"},
      {"two slashes", "/home/u//.maildir", "/home/u/.maildir"},
      {"many slashes", "///home////u", "/home/u"},
      {"slash at the end", "/home/u/", "/home/u"},
      {"single dots", "/./home/./u/.", "/home/u"},
      {"dots in names", "/home/..u/u../...", "/home/..u/u../..."},
      {"blanks and line feed", "/home/a b/\n", "/home/a b/\n"},
      {"root", "/", "/"},
      {"root twice", "//", "/"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.normal, user_dir::Normalised(c.path));
  }
}

TEST(UserDirPath, IsRefusedWhenItMayLeadElsewhere) {
  struct Case {
    const char* name;
    std::string path;
    const char* error;
  };
  const Case cases[] = {
      {"empty", "", "value: must be an absolute path"},
      {"relative", "home/u", "value: home/u: must be an absolute path"},
      {"up", "/home/u/../v", "value: /home/u/../v: must not contain \"..\""},
      {"up at the end", "/home/..", "value: /home/..: must not contain \"..\""},
      {"NUL", std::string("/home/u\0/v", 10), "value: /home/u: must not contain a NUL"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.error, ErrorOf([&] { user_dir::Normalised(c.path); }));
  }
}

TEST(UserDirPath, MustLieBelowTheHome) {
  struct Case {
    const char* name;
    const char* home;
    const char* path;
    const char* result;
  };
  const Case cases[] = {
      {"below", "/home/u", "/home/u/mail", "/home/u/mail"},
      {"below, written loosely", "/home//u/", "//home/u//mail/", "/home/u/mail"},
      {"home is the root", "/", "/mail", "/mail"},
      {"the home itself", "/home/u", "/home/u/", "value: /home/u: does not lie below /home/u"},
      {"beside", "/home/u", "/home/v/mail", "value: /home/v/mail: does not lie below /home/u"},
      {"longer name", "/home/u", "/home/u2/mail",
       "value: /home/u2/mail: does not lie below /home/u"},
      {"above", "/home/u", "/home", "value: /home: does not lie below /home/u"},
      {"up and down", "/home/u", "/home/u/../v", "value: /home/u/../v: must not contain \"..\""},
      {"relative home", "u", "/u/mail", "value: u: must be an absolute path"},
      {"empty home", "", "/u/mail", "value: must be an absolute path"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::string result;
    try {
      result = user_dir::Below(TestOwner(c.home), c.path).path();
    } catch (const mgr_err::Error& error) {
      result = error.what();
    }
    EXPECT_EQ(c.result, result);
  }
}

TEST(UserDirPath, AFolderKnowsItsOwner) {
  const Folder folder = user_dir::Below(TestOwner("/home/u"), "/home/u/mail");
  EXPECT_EQ("/home/u", folder.root());
  EXPECT_EQ(kUser, folder.uid());
  EXPECT_EQ(kUser, folder.gid());
  EXPECT_FALSE(folder.empty());
  EXPECT_TRUE(Folder().empty());
}

TEST_F(UserDirTest, MissingParentsAreMadeWithTheSameAttributes) {
  const auto made = user_dir::MakePath(At("/mail/example.org/u"), Attrs(0750, kUser, kOther));
  ASSERT_THAT(made, SizeIs(3));
  EXPECT_EQ(home + "/mail", made[0].path);
  EXPECT_EQ(home + "/mail/example.org/u", made[2].path);
  for (const user_dir::Made& directory : made) {
    SCOPED_TRACE(directory.path);
    const struct stat state = StateOf(directory.path);
    EXPECT_EQ(0750U, state.st_mode & 07777U);
    EXPECT_EQ(kUser, state.st_uid);
    EXPECT_EQ(kOther, state.st_gid);
    EXPECT_EQ(directory.inode, state.st_ino);
  }
  EXPECT_EQ(0755U, ModeOf(home)) << "the home is left alone";
}

TEST_F(UserDirTest, TheModeIsExactWhateverTheUmaskAndTheParent) {
  for (const mode_t mask : {0U, 022U, 077U, 0777U}) {
    for (const mode_t mode : {0700U, 0755U, 0750U, 0777U, 0500U, 0U, 02770U, 01777U}) {
      for (const mode_t parent_mode : {0700U, 02775U, 01777U}) {
        SCOPED_TRACE(testing::Message() << std::oct << "umask " << mask << " mode " << mode
                                        << " parent " << parent_mode);
        const std::string parent = MakeOwned("home/parent");
        ::chown(parent.c_str(), kUser, kOther);
        ::chmod(parent.c_str(), parent_mode);
        const Umask umask(mask);
        user_dir::MakePath(At("/parent/x"), Attrs(mode, kUser, kUser));
        EXPECT_EQ(mode, ModeOf(parent + "/x"));
        EXPECT_EQ(kUser, StateOf(parent + "/x").st_gid);
        EXPECT_EQ(parent_mode, ModeOf(parent));
        fs::remove_all(parent);
      }
    }
  }
}

TEST_F(UserDirTest, AnExistingDirectoryOfTheOwnerIsLeftAsItIs) {
  const std::string mail = MakeOwned("home/mail");
  ::chmod(mail.c_str(), 0711);
  const struct stat before = StateOf(mail);
  EXPECT_THAT(user_dir::MakePath(At("/mail"), kAttrs), SizeIs(0));
  const struct stat after = StateOf(mail);
  EXPECT_EQ(before.st_mode, after.st_mode);
  EXPECT_EQ(before.st_ctim.tv_nsec, after.st_ctim.tv_nsec);
}

TEST_F(UserDirTest, TheUsersOwnRestrictionsDoNotHinderTheAdministrator) {
  for (const mode_t mode : {0U, 0100U, 01777U, 0777U}) {
    SCOPED_TRACE(testing::Message() << std::oct << mode);
    const std::string mail = MakeOwned("home/mail");
    ::chmod(mail.c_str(), mode);
    EXPECT_THAT(user_dir::MakePath(At("/mail/x"), kAttrs), SizeIs(1));
    EXPECT_EQ(mode, ModeOf(mail));
    fs::remove_all(mail);
  }
}

struct Trap {
  const char* name;
  std::function<void(const std::string& path, const std::string& outside)> set;
  const char* reason;
};

void MakeSocket(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const Descriptor fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  ASSERT_EQ(0, ::bind(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address));
}

const Trap kTraps[] = {
    {"link to a directory", [](auto& path, auto& outside) { MakeLink(outside, path); },
     "not safe: is a symbolic link"},
    {"link to a directory of the user", [](auto& path, auto&) { MakeLink("..", path); },
     "not safe: is a symbolic link"},
    {"dangling link", [](auto& path, auto& outside) { MakeLink(outside + "/none", path); },
     "not safe: is a symbolic link"},
    {"link to itself", [](auto& path, auto&) { MakeLink(path, path); },
     "not safe: is a symbolic link"},
    {"file", [](auto& path, auto&) { ::close(::creat(path.c_str(), 0644)); },
     "not safe: is a regular file"},
    {"hard link to a file of the administrator",
     [](auto& path, auto& outside) {
       ::close(::creat((outside + ".file").c_str(), 0644));
       ASSERT_EQ(0, ::link((outside + ".file").c_str(), path.c_str()));
     },
     "not safe: is a regular file"},
    {"pipe", [](auto& path, auto&) { ASSERT_EQ(0, ::mkfifo(path.c_str(), 0666)); },
     "not safe: is a pipe"},
    {"socket", [](auto& path, auto&) { MakeSocket(path); }, "not safe: is a socket"},
    {"directory of another user", [](auto& path, auto&) { MakeForeign(path, kOther); },
     "not safe: belongs to uid 54322 instead of 54321"},
    {"directory of the administrator", [](auto& path, auto&) { MakeForeign(path, 0); },
     "not safe: belongs to uid 0 instead of 54321"},
};

TEST_F(UserDirTest, AnEntryThatIsNotTheUsersDirectoryIsNamedAtEachPlaceOfThePath) {
  const std::vector<std::string> components{"/a", "/b", "/cur"};
  for (const Trap& trap : kTraps) {
    for (std::size_t place = 0; place < components.size(); ++place) {
      SCOPED_TRACE(std::string(trap.name) + " at " + components[place]);
      std::string path = home;
      for (std::size_t i = 0; i < place; ++i) {
        path += components[i];
        MakeOwned(path.substr(tree.path().size() + 1));
      }
      path += components[place];
      trap.set(path, outside);
      EXPECT_EQ("file: " + path + ": " + trap.reason, MakeError("/a/b/cur"));
      EXPECT_TRUE(fs::is_empty(outside));
      EXPECT_EQ(0U, StateOf(outside).st_uid);
      fs::remove_all(home);
      MakeOwned("home");
    }
  }
}

// In a process of its own, whose mounts nobody else sees.
TEST_F(UserDirTest, AMountPointIsAcceptedOnlyWhenItsTopBelongsToTheUser) {
  const std::string mail = MakeOwned("home/mail");
  const pid_t child = ::fork();
  if (child == 0) {
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("none", mail.c_str(), "tmpfs", 0, "mode=0755") != 0) {
      ::_exit(2);
    }
    const bool refused =
        MakeError("/mail/x") == "file: " + mail + ": not safe: belongs to uid 0 instead of 54321";
    const bool given = ::chown(mail.c_str(), kUser, kUser) == 0;
    ::_exit(refused && given && MakeError("/mail/x") == "nothing was thrown" ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(child, ::waitpid(child, &status, 0));
  if (WEXITSTATUS(status) == 2) {
    GTEST_SKIP() << "may not mount here";
  }
  EXPECT_EQ(0, status);
}

TEST_F(UserDirTest, TheHomeMustExistAndBeTheUsersOrTheAdministrators) {
  struct Case {
    const char* name;
    std::function<void(const std::string& path)> set;
    std::string error;
  };
  const Case cases[] = {
      {"missing", [](auto&) {}, "open: No such file or directory"},
      {"link", [this](auto& path) { MakeLink(outside, path); }, "not safe: is a symbolic link"},
      {"file", [](auto& path) { ::close(::creat(path.c_str(), 0644)); },
       "not safe: is a regular file"},
      {"another user's", [](auto& path) { MakeForeign(path, kOther); },
       "not safe: belongs to uid 54322 instead of 54321"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fs::remove_all(home);
    c.set(home);
    EXPECT_EQ("file: " + home + ": " + c.error, MakeError("/mail"));
    EXPECT_TRUE(fs::is_empty(outside));
  }
  fs::remove_all(home);
  MakeForeign(home, 0);
  EXPECT_EQ("nothing was thrown", MakeError("/mail"));
}

TEST_F(UserDirTest, AFailureHalfWayLeavesNothing) {
  MakeOwned("home/a");
  const std::string error = MakeError("/a/b/c/" + std::string(300, 'x') + "/d");
  EXPECT_THAT(error, HasSubstr("mkdir: File name too long"));
  EXPECT_TRUE(IsThere(home + "/a"));
  EXPECT_FALSE(IsThere(home + "/a/b"));
}

TEST_F(UserDirTest, AnOwnerThatCantBeSetLeavesNothing) {
  const pid_t child = ::fork();
  if (child == 0) {
    const bool ready =
        ::setresgid(kUser, kUser, kUser) == 0 && ::setresuid(kUser, kUser, kUser) == 0;
    const std::string error =
        ErrorOf([&] { user_dir::MakePath(At("/mail"), Attrs(0700, kOther, kOther)); });
    const std::string wanted = "file: " + home + "/mail: chown: Operation not permitted";
    ::_exit(ready && error.starts_with(wanted) ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(child, ::waitpid(child, &status, 0));
  EXPECT_EQ(0, status);
  EXPECT_FALSE(IsThere(home + "/mail"));
}

TEST_F(UserDirTest, OneDirectoryIsMadeInAFolder) {
  const user_dir::Made made = user_dir::MakeOne(At(""), "cur", kAttrs);
  EXPECT_EQ(home + "/cur", made.path);
  EXPECT_EQ(0700U, ModeOf(made.path));
  EXPECT_EQ(kUser, StateOf(made.path).st_uid);
}

TEST_F(UserDirTest, OneDirectoryIsNotMadeOverWhatIsThere) {
  struct Case {
    const char* name;
    std::function<void(const std::string& path)> set;
    const char* error;
  };
  const Case cases[] = {
      {"file", [](auto& path) { ::close(::creat(path.c_str(), 0644)); },
       "exists already as a regular file"},
      {"directory", [](auto& path) { MakeForeign(path, kUser); }, "exists already as a directory"},
      {"link", [this](auto& path) { MakeLink(outside, path); },
       "exists already as a symbolic link"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string path = home + "/cur";
    c.set(path);
    EXPECT_EQ("file: " + path + ": " + c.error,
              ErrorOf([&] { user_dir::MakeOne(At(""), "cur", kAttrs); }));
    EXPECT_TRUE(IsThere(path));
    fs::remove_all(path);
  }
}

TEST_F(UserDirTest, OnlyTheDirectoryThatWasMadeIsRemoved) {
  const std::string path = home + "/mail/cur";
  struct Case {
    const char* name;
    std::function<void()> change;
    bool stays;
  };
  const Case cases[] = {
      {"unchanged", [] {}, false},
      {"filled", [&] { ::close(::creat((path + "/mail").c_str(), 0600)); }, true},
      {"gone", [&] { fs::remove(path); }, false},
      {"replaced by a link",
       [&] {
         fs::remove(path);
         MakeLink(outside, path);
       },
       true},
      // The old one stays: its inode number would be used again at once.
      {"replaced by another directory",
       [&] {
         fs::rename(path, home + "/old");
         MakeForeign(path, kUser);
       },
       true},
      {"other mode", [&] { ::chmod(path.c_str(), 0); }, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    MakeOwned("home/mail");
    const user_dir::Made made = user_dir::MakeOne(At("/mail"), "cur", kAttrs);
    c.change();
    user_dir::Remove(At("/mail"), made);
    EXPECT_EQ(c.stays, IsThere(path));
    EXPECT_TRUE(fs::exists(outside));
    fs::remove_all(home);
    MakeOwned("home");
  }
}

TEST_F(UserDirTest, RemovingDoesNotFollowALinkOnTheWay) {
  const auto made = user_dir::MakePath(At("/mail/cur"), kAttrs);
  fs::rename(home + "/mail", home + "/real");
  MakeLink(home + "/real", home + "/mail");
  EXPECT_EQ("file: " + home + "/mail: not safe: is a symbolic link",
            ErrorOf([&] { user_dir::Remove(At("/mail/cur"), made[1]); }));
  EXPECT_TRUE(IsThere(home + "/real/cur"));
}

TEST_F(UserDirTest, AFolderIsOpenedOnlyOnASafeWay) {
  MakeOwned("home/mail");
  EXPECT_TRUE(user_dir::Open(At("/mail")));
  EXPECT_EQ("file: " + home + "/none: open: No such file or directory",
            ErrorOf([&] { user_dir::Open(At("/none")); }));
  MakeLink("mail", home + "/link");
  EXPECT_EQ("file: " + home + "/link: not safe: is a symbolic link",
            ErrorOf([&] { user_dir::Open(At("/link")); }));
}

TEST_F(UserDirTest, AnErrorAtAnyCallLeavesNothing) {
  MakeOwned("home/a");
  const std::size_t open_before = OpenDescriptors();
  std::size_t number = 1;
  for (bool finished = false; !finished; ++number) {
    SCOPED_TRACE(number);
    support::SysFault fault;
    fault.FailNumber(number, EIO, false);
    const std::string error = MakeError("/a/b/c");
    finished = error == "nothing was thrown";
    EXPECT_EQ(finished, IsThere(home + "/a/b"));
    EXPECT_EQ(open_before, OpenDescriptors());
    if (!finished) {
      EXPECT_THAT(error, testing::ContainsRegex("^file: (/[^:]*): "));
      EXPECT_THAT(home + "/a/b/c", testing::StartsWith(error.substr(6, error.find(": ", 6) - 6)));
      EXPECT_THAT(error, HasSubstr("Input/output error"));
    }
  }
  EXPECT_GT(number, 20U) << "too few calls have failed";
}

// Calls that open something.
std::size_t OpensOf(const std::function<void()>& action) {
  support::SysFault calls;
  std::size_t opens = 0;
  calls.OnCall([&](std::string_view call, std::size_t) { opens += call == "open" ? 1U : 0U; });
  action();
  return opens;
}

TEST_F(UserDirTest, AWayThatIsKeptIsNotGoneAgain) {
  const auto make = [this](const char* name) { user_dir::MakeOne(At("/a/b"), name, kAttrs); };
  const user_dir::KeepWay way;
  user_dir::MakePath(At("/a/b"), kAttrs);
  EXPECT_EQ(3U, OpensOf([&] { make("new"); })) << "what is kept twice, and what was made";
  EXPECT_EQ(3U, OpensOf([&] { make("cur"); }));
  {
    const user_dir::KeepWay inner;
    EXPECT_LT(5U, OpensOf([&] { make("tmp"); })) << "begins anew";
  }
  EXPECT_EQ(3U, OpensOf([&] { make("more"); }));
  for (const char* name : {"new", "cur", "tmp", "more"}) {
    EXPECT_EQ(kUser, StateOf(home + "/a/b/" + name).st_uid) << name;
  }
}

TEST_F(UserDirTest, AWayThatIsKeptServesNobodyElse) {
  const user_dir::KeepWay way;
  MakeOwned("home/a");
  MakeOwned("home/ab");
  user_dir::Open(At("/a"));
  const Folder of_other(home, home + "/a", kOther, kOther);
  EXPECT_THAT(ErrorOf([&] { user_dir::Open(of_other); }), HasSubstr("not safe: belongs to uid"));
  const Folder of_other_tree(outside, outside + "/a", kUser, kUser);
  EXPECT_THAT(ErrorOf([&] { user_dir::Open(of_other_tree); }), HasSubstr(outside));
  user_dir::MakeOne(At("/ab"), "cur", kAttrs);
  user_dir::MakeOne(At(""), "c", kAttrs);
  EXPECT_TRUE(IsThere(home + "/ab/cur"));
  EXPECT_TRUE(IsThere(home + "/c"));
}

TEST_F(UserDirTest, WhatAUserPutsInThePlaceOfAKeptFolderIsNotEntered) {
  const user_dir::KeepWay way;
  user_dir::MakePath(At("/a/b"), kAttrs);
  fs::rename(home + "/a/b", home + "/a/away");
  MakeLink(outside, home + "/a/b");
  user_dir::MakeOne(At("/a/b"), "cur", kAttrs);
  EXPECT_TRUE(fs::is_empty(outside));
  EXPECT_TRUE(IsThere(home + "/a/away/cur"));
}

TEST_F(UserDirTest, AKeptFolderThatIsNoneOfTheOwnersIsNotGoneOnFrom) {
  const user_dir::KeepWay way;
  user_dir::MakePath(At("/a/b"), kAttrs);
  fs::remove(home + "/a/b");
  EXPECT_THAT(user_dir::MakePath(At("/a/b"), kAttrs), SizeIs(1));
  user_dir::MakePath(At("/c"), {kOther, kOther, 0700});
  EXPECT_THAT(MakeError("/c/d"), HasSubstr("not safe: belongs to uid"));
}

TEST_F(UserDirTest, TheStepsAreTheSameOnAWayThatIsKept) {
  MakeOwned("home/a");
  const user_dir::KeepWay way;
  for (const char* path : {"/a/b/c", "/a/b/c/d", "/a/b", "/a", "", "/a/x", "/y"}) {
    SCOPED_TRACE(path);
    const auto kept = user_dir::StepsOfMaking(At(path));
    const user_dir::KeepWay anew;
    const auto steps = user_dir::StepsOfMaking(At(path));
    ASSERT_EQ(steps.size(), kept.size());
    for (std::size_t at = 0; at < steps.size(); ++at) {
      EXPECT_EQ(journal::Text(steps[at]), journal::Text(kept[at]));
    }
  }
  EXPECT_THAT(user_dir::StepsOfMaking(At("/a/b/c")), SizeIs(2));
  EXPECT_THAT(user_dir::StepsOfMaking(At("/a")), SizeIs(0));
}

TEST_F(UserDirTest, AnErrorAtAnyCallOnAWayThatIsKeptLeavesNothing) {
  std::size_t number = 1;
  for (bool finished = false; !finished; ++number) {
    SCOPED_TRACE(number);
    const user_dir::KeepWay way;
    user_dir::MakePath(At("/a"), kAttrs);
    support::SysFault fault;
    fault.FailNumber(number, EIO, false);
    const std::string error = MakeError("/a/b/c");
    finished = !fault.Failed();
    EXPECT_EQ(error == "nothing was thrown", IsThere(home + "/a/b")) << error;
    fs::remove_all(home + "/a/b");
  }
  EXPECT_GT(number, 15U) << "too few calls have failed";
}

TEST_F(UserDirTest, ARefusalOfTheSystemIsSaidInWords) {
  struct Case {
    const char* name;
    int error;
    const char* words;
  };
  const Case cases[] = {
      {"the user's quota is used up", EDQUOT, "Disk quota exceeded"},
      {"no room", ENOSPC, "No space left on device"},
      {"read-only", EROFS, "Read-only file system"},
      {"a server that does not take us for root", EACCES, "Permission denied"},
      {"a server that is gone", ESTALE, "Stale file handle"},
      {"a home that is mounted on demand and can't be", EHOSTDOWN, "Host is down"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    for (const char* call : {"mkdir", "fchown", "fsync"}) {
      support::SysFault fault;
      fault.FailCall(call, c.error);
      const std::string error = MakeError("/mail");
      EXPECT_THAT(error, testing::StartsWith("file: " + home + "/mail: "));
      EXPECT_THAT(error, HasSubstr(c.words));
      EXPECT_FALSE(IsThere(home + "/mail"));
    }
  }
}

// Nothing can be removed any more either: what stays is the administrator's and closed.
TEST_F(UserDirTest, WhatCantBeRemovedAfterAnErrorIsOpenToNobody) {
  MakeOwned("home/a");
  for (std::size_t number = 1; number < 12; ++number) {
    SCOPED_TRACE(number);
    {
      support::SysFault fault;
      fault.FailNumber(number, EIO, true);
      EXPECT_NE("nothing was thrown", MakeError("/a/b"));
    }
    if (IsThere(home + "/a/b")) {
      EXPECT_EQ(0700U, ModeOf(home + "/a/b"));
      fs::remove(home + "/a/b");
    }
  }
}

TEST_F(UserDirTest, ADirectoryAndItsNameAreDurable) {
  std::vector<std::string> calls;
  support::SysFault fault;
  fault.OnCall([&calls](std::string_view call, std::size_t) {
    if (call == "mkdir" || call == "fsync" || call == "fchmod" || call == "rmdir") {
      calls.emplace_back(call);
    }
  });
  const user_dir::Made made = user_dir::MakeOne(At(""), "cur", kAttrs);
  user_dir::Remove(At(""), made);
  EXPECT_THAT(calls, testing::ElementsAre("mkdir", "fchmod", "fsync", "fsync", "rmdir", "fsync"));
}

}  // namespace
