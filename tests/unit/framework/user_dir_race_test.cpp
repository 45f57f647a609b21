#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>

#include "framework/user_dir.h"
#include "tests/support/racer.h"
#include "tests/support/sanitized.h"
#include "tests/support/sys_fault.h"
#include "tests/unit/framework/user_dir_fixture.h"

namespace {

namespace fs = std::filesystem;
using namespace user_dir_test;

// A sanitizer looks at the code, not at the race.
constexpr int kShortRun = support::kSanitized ? 4000 : 20000;
const int kTries = std::getenv("BRISQ_SOAK") == nullptr ? kShortRun : 200000;
// Of the controls, which end when they have been hit this often.
constexpr int kEnoughHits = 101;
constexpr int kControlTries = 200000;

// What root does meanwhile; for a control it can wait for the user.
using Maker = std::function<void(const std::string& path, const support::Racer& racer)>;

struct RaceResult {
  int tries = 0;
  int made = 0;
  int hits = 0;
};

void Exchange(int directory, const char* one, const char* other) {
  ::renameat2(directory, one, directory, other, RENAME_EXCHANGE);
}

// What somebody would write who does not think of users who swap entries.
void MakeNaively(const std::string& path, const support::Racer& racer) {
  const bool made = ::mkdir(path.c_str(), 0700) == 0 && fs::is_directory(fs::symlink_status(path));
  racer.WaitForStep();
  if (!made || ::chmod(path.c_str(), 0700) != 0 || ::chown(path.c_str(), kUser, kUser) != 0) {
    throw mgr_err::Error("file", path);
  }
}

class UserDirRaceTest : public UserDirTest {
 protected:
  void SetUp() override {
    UserDirTest::SetUp();
    if (!IsSkipped()) {
      box = MakeOwned("home/mail/box");
      ASSERT_EQ(0, ::chown((home + "/mail").c_str(), kUser, kUser));
    }
  }

  // The user swaps the parent for a link that leads outside. A hit is an entry outside.
  RaceResult RaceForTheParent(int tries, const Maker& make) {
    MakeLink(outside, home + "/mail/trap");
    const Descriptor mail(::open((home + "/mail").c_str(), O_PATH | O_CLOEXEC));
    const support::Racer racer(kUser, [&] { Exchange(mail.get(), "box", "trap"); });
    return Race(tries, box + "/new", make, racer,
                [&] { return ::rmdir((outside + "/new").c_str()) == 0; });
  }

  // The user swaps the new directory itself, for a link that leads outside, for a directory of the
  // administrator's that stands in the user's reach, and for a hard link to a file outside. A hit
  // is another owner or mode of any of them.
  RaceResult RaceForTheDirectory(int tries, const Maker& make) {
    MakeLink(outside, box + "/trap");
    const std::string backup = box + "/backup";
    MakeForeign(backup, 0);
    ::close(::creat((backup + "/secret").c_str(), 0600));
    const std::string file = tree.Write("file", "secret");
    ::chmod(file.c_str(), 0640);
    EXPECT_EQ(0, ::link(file.c_str(), (box + "/hard").c_str()));
    const Descriptor watched(::open(backup.c_str(), O_PATH | O_CLOEXEC));
    const Descriptor in(::open(box.c_str(), O_PATH | O_CLOEXEC));
    const support::Racer racer(kUser, [&] {
      for (const char* other : {"trap", "backup", "hard"}) {
        Exchange(in.get(), "new", other);
        ::renameat2(in.get(), "new", in.get(), other, RENAME_NOREPLACE);
      }
    });
    return Race(tries, box + "/new", make, racer, [&] {
      struct stat state = {};
      ::fstat(watched.get(), &state);
      const struct stat linked = StateOf(file);
      const bool hit = state.st_uid != 0 || StateOf(outside).st_uid != 0 || linked.st_uid != 0 ||
                       (linked.st_mode & 07777U) != 0640;
      ::fchownat(watched.get(), "", 0, 0, AT_EMPTY_PATH);
      ::chown(outside.c_str(), 0, 0);
      ::chown(file.c_str(), 0, 0);
      ::chmod(file.c_str(), 0640);
      return hit;
    });
  }

  // The user swaps the parent for a link to a folder in which one of the same name stands.
  RaceResult RaceForRemoval(int tries, const Maker& make) {
    MakeLink(outside, home + "/mail/trap");
    MakeForeign(outside + "/new", 0);
    const Descriptor mail(::open((home + "/mail").c_str(), O_PATH | O_CLOEXEC));
    const support::Racer racer(kUser, [&] { Exchange(mail.get(), "box", "trap"); });
    RaceResult result;
    while (result.tries < tries && result.hits < kEnoughHits) {
      ++result.tries;
      try {
        make(box + "/new", racer);
        ++result.made;
      } catch (const mgr_err::Error&) {
      }
      result.hits += fs::exists(outside + "/new") ? 0 : 1;
      for (const char* folder : {"/mail/box/new", "/mail/trap/new"}) {
        ::rmdir((home + folder).c_str());
      }
      ::mkdir((outside + "/new").c_str(), 0700);
    }
    std::printf("tries: %d, removed: %d, hits: %d\n", result.tries, result.made, result.hits);
    return result;
  }

  static RaceResult Race(int tries, const std::string& path, const Maker& make,
                         const support::Racer& racer, const std::function<bool()>& look_for_hit) {
    RaceResult result;
    while (result.tries < tries && result.hits < kEnoughHits) {
      ++result.tries;
      try {
        make(path, racer);
        ++result.made;
      } catch (const mgr_err::Error&) {
      }
      result.hits += look_for_hit() ? 1 : 0;
      // Wherever it is by now: what is no empty directory stays.
      for (const char* name : {"new", "trap", "backup", "hard", "../trap/new"}) {
        ::rmdir((path.substr(0, path.rfind('/') + 1) + name).c_str());
      }
    }
    return result;
  }

  std::string box;
};

// The user puts a directory of the administrator's in the place of the new one before that is
// opened: an empty one may become his, one with a file must not.
TEST_F(UserDirRaceTest, ADirectoryInThePlaceOfTheNewOneMustBeEmpty) {
  struct Case {
    const char* name;
    const char* entry;  // nothing: none
    const char* error;
  };
  const std::string made = home + "/new";
  const std::string other = home + "/other";
  const Case cases[] = {
      {"an empty one", "", "nothing was thrown"},
      {"one with a file", "file", "was swapped while it was made"},
      {"one with a hidden file", ".x", "was swapped while it was made"},
      {"one with a name that begins as the parent's", "..x", "was swapped while it was made"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    MakeForeign(other, 0);
    if (*c.entry != 0) {
      tree.Write("home/other/" + std::string(c.entry), "");
    }
    support::SysFault calls;
    calls.OnCall([&](std::string_view, std::size_t) {
      if (fs::exists(made) && fs::exists(other)) {
        fs::remove(made);
        fs::rename(other, made);
      }
    });
    EXPECT_THAT(ErrorOf([&] { user_dir::MakeOne(At(""), "new", kAttrs); }),
                testing::HasSubstr(c.error));
    EXPECT_EQ(*c.entry == 0 ? kUser : 0, StateOf(made).st_uid);
    fs::remove_all(made);
  }
}

TEST_F(UserDirRaceTest, ASwappedParentNeverLeadsOutside) {
  const RaceResult result =
      RaceForTheParent(kTries, [this](const std::string&, const support::Racer&) {
        user_dir::MakePath(At("/mail/box/new"), kAttrs);
      });
  std::printf("tries: %d, made: %d, hits: %d\n", result.tries, result.made, result.hits);
  EXPECT_EQ(0, result.hits);
  EXPECT_GT(result.made, 0);
}

TEST_F(UserDirRaceTest, ASwappedParentLeadsNaiveCodeOutside) {
  const RaceResult result = RaceForTheParent(kControlTries, &MakeNaively);
  std::printf("tries: %d, made: %d, hits: %d\n", result.tries, result.made, result.hits);
  EXPECT_EQ(kEnoughHits, result.hits);
}

TEST_F(UserDirRaceTest, ASwappedDirectoryNeverGivesAwayAnother) {
  const RaceResult result =
      RaceForTheDirectory(kTries, [this](const std::string&, const support::Racer&) {
        user_dir::MakePath(At("/mail/box/new"), kAttrs);
      });
  std::printf("tries: %d, made: %d, hits: %d\n", result.tries, result.made, result.hits);
  EXPECT_EQ(0, result.hits);
  EXPECT_GT(result.made, 0);
}

TEST_F(UserDirRaceTest, ASwappedDirectoryMakesNaiveCodeGiveAwayAnother) {
  const RaceResult result = RaceForTheDirectory(kControlTries, &MakeNaively);
  std::printf("tries: %d, made: %d, hits: %d\n", result.tries, result.made, result.hits);
  EXPECT_EQ(kEnoughHits, result.hits);
}

// What a request made is removed again when it fails. A hit is a folder of the administrator's that
// is gone.
TEST_F(UserDirRaceTest, ASwappedParentNeverHasAnotherFolderRemoved) {
  const auto make_and_remove = [&](const std::string&, const support::Racer&) {
    user_dir::Remove(At("/mail/box"), user_dir::MakeOne(At("/mail/box"), "new", kAttrs));
  };
  EXPECT_EQ(0, RaceForRemoval(kTries, make_and_remove).hits);
}

TEST_F(UserDirRaceTest, ASwappedParentHasNaiveCodeRemoveAnotherFolder) {
  const auto make_and_remove = [](const std::string& path, const support::Racer& racer) {
    MakeNaively(path, racer);
    racer.WaitForStep();
    ::rmdir(path.c_str());
  };
  EXPECT_EQ(kEnoughHits, RaceForRemoval(kControlTries, make_and_remove).hits);
}

}  // namespace
