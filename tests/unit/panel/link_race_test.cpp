// A user swaps entries of a folder in which the administrator places and removes links: one that is
// open to all by mistake.

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "framework/descriptor.h"
#include "framework/request.h"
#include "panel/link_jobs.h"
#include "tests/support/racer.h"
#include "tests/support/sanitized.h"
#include "tests/unit/framework/user_dir_fixture.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

namespace fs = std::filesystem;
using brisq_panel::PlaceLink;
using brisq_panel::RemoveLink;
using user_dir_test::kUser;
using user_dir_test::StateOf;

// A sanitizer looks at the code, not at the race.
constexpr int kShortRun = support::kSanitized ? 4000 : 20000;
const int kTries = std::getenv("BRISQ_SOAK") == nullptr ? kShortRun : 200000;
constexpr int kControlTries = 200000;
constexpr int kEnoughHits = 101;
constexpr const char* kName = "example.org.crt";
constexpr const char* kTraps[] = {"folder", "link", "hard"};

struct Result {
  int tries = 0;
  int placed = 0;
  int hits = 0;
};

struct Failing : mgr_job::Job {
  void Do() override { throw mgr_err::Error("file", "later", "failed"); }
  void Undo() override {}
};

using Placer =
    std::function<void(const std::string& path, int number, const support::Racer& racer)>;

class LinkRace : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) {
      GTEST_SKIP() << "acts as another user: needs root";
    }
    ::chmod(tree_.path().c_str(), 0755);
    outside_ = tree_.MakeFolder("outside");
    victim_ = tree_.Write("outside/victim", "secret");
    ::chmod(victim_.c_str(), 0644);
    links_ = tree_.MakeFolder("links");
    ::chmod(links_.c_str(), 0777);
  }

  // Anew for each try: the administrator replaces and removes what the user has put at the name.
  void SetTraps() const {
    const std::string fresh = tree_.path() + "/fresh";
    ::symlink(outside_.c_str(), fresh.c_str());
    ::rename(fresh.c_str(), (links_ + "/folder").c_str());
    ::symlink(victim_.c_str(), fresh.c_str());
    ::rename(fresh.c_str(), (links_ + "/link").c_str());
    ::link(victim_.c_str(), fresh.c_str());
    ::rename(fresh.c_str(), (links_ + "/hard").c_str());
    // A second name of the same file is no reason to rename.
    ::unlink(fresh.c_str());
  }

  // Swaps the link, and what is prepared beside it, with each trap.
  static void Swap(int folder) {
    const int again = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* entries = ::fdopendir(again);
    while (const dirent* entry = entries == nullptr ? nullptr : ::readdir(entries)) {
      if (entry->d_name[0] == '.' && entry->d_name[1] != '\0' && entry->d_name[1] != '.') {
        ::renameat2(folder, entry->d_name, folder, "link", RENAME_EXCHANGE);
      }
    }
    if (entries != nullptr) ::closedir(entries);
    for (int round = 0; round < 20; ++round) {
      for (const char* trap : kTraps) {
        ::renameat2(folder, kName, folder, trap, RENAME_EXCHANGE);
      }
    }
  }

  bool WasHit() const {
    const struct stat state = StateOf(victim_);
    bool hit = state.st_uid != 0 || (state.st_mode & 07777U) != 0644 || state.st_size != 6;
    for (const auto& entry : fs::directory_iterator(outside_)) {
      if (entry.path() != victim_) {
        hit = true;
        fs::remove(entry.path());
      }
    }
    return hit || StateOf(outside_).st_uid != 0;
  }

  Result Race(int tries, const Placer& place) {
    const Descriptor folder(::open(links_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const support::Racer racer(kUser, [&] { Swap(folder.get()); });
    Result result;
    while (result.tries < tries && result.hits < kEnoughHits) {
      SetTraps();
      try {
        place(links_ + "/" + kName, ++result.tries, racer);
        ++result.placed;
      } catch (const mgr_err::Error&) {
      }
      if (WasHit()) {
        ++result.hits;
        ::chown(victim_.c_str(), 0, 0);
        ::chmod(victim_.c_str(), 0644);
        ::chown(outside_.c_str(), 0, 0);
      }
    }
    std::printf("tries: %d, placed: %d, hits: %d\n", result.tries, result.placed, result.hits);
    return result;
  }

  void TearDown() override {
    // Undoing meets what the user has put there, and says so.
    log_.Clear();
  }

  support::LogCapture log_;
  const user_dir_test::TemporaryFilesInMemory in_memory_;
  support::TempDir tree_;
  std::string outside_, victim_, links_;
};

// Placed, placed and taken back, removed, in turn.
void Work(const std::string& path, int number, const support::Racer&) {
  Request request("race");
  if (number % 3 == 2) {
    new RemoveLink(path);
  } else {
    new PlaceLink("/etc/ssl/example.org.pem", path);
  }
  if (number % 3 == 1) {
    new Failing;
  }
  request.Commit();
}

TEST_F(LinkRace, PlacingAndRemovingLinksNeverTouchesWhatTrapsLeadTo) {
  const Result result = Race(kTries, &Work);
  EXPECT_EQ(0, result.hits);
  EXPECT_GT(result.placed, 0);
}

// As `ln -sf` does it, which puts the link into a folder that stands at its name, with an owner.
void LinkNaively(const std::string& path, int, const support::Racer& racer) {
  const std::string target = "/etc/ssl/example.org.pem";
  struct stat there {};
  const bool folder = ::stat(path.c_str(), &there) == 0 && S_ISDIR(there.st_mode);
  const std::string at = folder ? path + "/example.org.pem" : path;
  ::unlink(at.c_str());
  const bool placed = ::symlink(target.c_str(), at.c_str()) == 0;
  racer.WaitForStep();
  if (!placed || ::chown(path.c_str(), kUser, kUser) != 0) {
    throw mgr_err::Error("file", path);
  }
}

TEST_F(LinkRace, NaiveCodeIsLedOutside) {
  EXPECT_EQ(kEnoughHits, Race(kControlTries, &LinkNaively).hits);
}

}  // namespace
