// A user swaps entries while `check --fix` mends modes and makes what is missing.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "framework/descriptor.h"
#include "panel/check.h"
#include "panel/check_homes.h"
#include "panel/mailboxes.h"
#include "tests/support/racer.h"
#include "tests/support/sanitized.h"
#include "tests/unit/framework/user_dir_fixture.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

constexpr uid_t kBob = 1001;
// A sanitizer looks at the code, not at the race.
constexpr int kShortRun = support::kSanitized ? 500 : 2000;
const int kTries = std::getenv("BRISQ_SOAK") == nullptr ? kShortRun : 200000;
// They end when they have been hit often enough.
constexpr int kControlTries = 2000000;
constexpr int kEnoughHits = 101;

// What must keep mode and owner, whatever the user does with names that lead to it.
class Victims {
 public:
  Victims(const support::TempDir& dir, const std::string& in_reach)
      : paths_{dir.MakeFolder("outside"), dir.Write("outside/file", "secret"), in_reach} {
    std::filesystem::create_directory(in_reach);
    std::ofstream(in_reach + "/secret") << "secret";
    for (const std::string& path : paths_) {
      held_.emplace_back(::open(path.c_str(), O_PATH | O_CLOEXEC));
    }
    Reset();
  }

  const std::string& outside() const { return paths_[0]; }
  const std::string& file() const { return paths_[1]; }

  // True when one of them has changed; then it is as before again.
  bool WereHit() const {
    bool hit = false;
    for (const Descriptor& held : held_) {
      struct stat state {};
      ::fstat(held.get(), &state);
      hit = hit || state.st_uid != 0 || (state.st_mode & 07777U) != kMode;
    }
    if (hit) {
      Reset();
    }
    return hit;
  }

 private:
  static constexpr mode_t kMode = 0710;

  void Reset() const {
    for (const Descriptor& held : held_) {
      const std::string path = "/proc/self/fd/" + std::to_string(held.get());
      ::chown(path.c_str(), 0, 0);
      ::chmod(path.c_str(), kMode);
    }
  }

  const std::vector<std::string> paths_;
  std::vector<Descriptor> held_;  // whatever their names are by then
};

// A base before the panel, whose folder lies where TMPDIR says.
class MendRace : private user_dir_test::TemporaryFilesInMemory, public panel_test::PanelTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) {
      GTEST_SKIP() << "acts as another user: needs root";
    }
    ::chmod(dir_.path().c_str(), 0755);
    AddBobsDomain();
    email::RegisterPop3(&mail_);
    const std::string home = brisq_panel::AddMailbox({"a@example.org", "secret"}).home;
    maildir_ = home + "/.maildir";
    for (const char* part : {"", "/new", "/cur", "/tmp"}) {
      std::filesystem::create_directories(maildir_ + part);
    }
    for (std::string path = maildir_ + "/cur"; path.size() > dir_.path().size();
         path = mgr_file::SplitPath(path).first) {
      ::chown(path.c_str(), kBob, kBob);
    }
    for (const char* part : {"/new", "/tmp"}) {
      ::chown((maildir_ + part).c_str(), kBob, kBob);
    }
  }

  // Refusals of what the user has put there are what is asked for.
  void TearDown() override { log_.Clear(); }

  struct Result {
    int tries = 0;
    int mended = 0;
    int hits = 0;
  };

  // The user swaps the entry `name` of `folder`, which he opens to everybody again and again, with
  // traps: entries of the folder that lead to victims.
  Result Race(const std::string& folder, const std::string& name, int tries,
              const std::function<int(const support::Racer&)>& mend) {
    const Victims victims(dir_, folder + "/backup");
    user_dir_test::MakeLink(victims.outside(), folder + "/link");
    EXPECT_EQ(0, ::link(victims.file().c_str(), (folder + "/hard").c_str()));
    const Descriptor in(::open(folder.c_str(), O_PATH | O_CLOEXEC));
    const Descriptor open(::open((folder + "/" + name).c_str(), O_RDONLY | O_CLOEXEC));
    // Half of the steps end with a trap in place.
    const support::Racer racer(kBob, [&, step = 0U]() mutable {
      constexpr const char* kTraps[] = {"link", "hard", "backup"};
      ::fchmod(open.get(), 0777);
      ::renameat2(in.get(), name.c_str(), in.get(), kTraps[step++ / 2 % 3], RENAME_EXCHANGE);
    });
    Result result;
    while (result.tries < tries && result.hits < kEnoughHits) {
      ++result.tries;
      result.mended += mend(racer);
      result.hits += victims.WereHit() ? 1 : 0;
      // On a busy machine the user would hardly come to swap anything between two tries.
      std::this_thread::yield();
    }
    std::printf("tries: %d, mended: %d, hits: %d\n", result.tries, result.mended, result.hits);
    return result;
  }

  // How much was found and mended.
  static int CheckAndMend(const support::Racer&) {
    int mended = 0;
    brisq_panel::Drifts drifts;
    brisq_panel::CheckHomes(drifts);
    for (const brisq_panel::Drift& drift : drifts.all()) {
      if (drift.mend) {
        const bool done =
            "none" == panel_test::ErrorOf([&] { brisq_panel::MendDrift(drift); }).type();
        mended += done ? 1 : 0;
      }
    }
    return mended;
  }

  // As a script would with stat(1) and chmod(1): a program's start lies between the two.
  static int MendNaively(const std::string& path, const support::Racer& racer) {
    struct stat state {};
    if (::lstat(path.c_str(), &state) != 0 || !S_ISDIR(state.st_mode)) {
      return 0;
    }
    racer.WaitForStep();
    return ::chmod(path.c_str(), 0700) == 0 ? 1 : 0;
  }

  std::string maildir_;
};

TEST_F(MendRace, AModeInAMaildirIsNotGivenToWhatTheUserPutsThere) {
  const Result result = Race(maildir_, "cur", kTries, &CheckAndMend);
  EXPECT_EQ(0, result.hits);
  EXPECT_GT(result.mended, 0);
}

TEST_F(MendRace, AMaildirsModeIsGivenAwayByNaiveCode) {
  const auto mend = [this](const support::Racer& racer) {
    return MendNaively(maildir_ + "/cur", racer);
  };
  EXPECT_EQ(kEnoughHits, Race(maildir_, "cur", kControlTries, mend).hits);
}

TEST_F(MendRace, AModeOfAHomeIsNotGivenToWhatTheUserPutsThere) {
  const Result result = Race(mgr_file::SplitPath(Home()).first, "bob", kTries, &CheckAndMend);
  EXPECT_EQ(0, result.hits);
  EXPECT_GT(result.mended, 0);
}

TEST_F(MendRace, AHomesModeIsGivenAwayByNaiveCode) {
  const auto mend = [this](const support::Racer& racer) { return MendNaively(Home(), racer); };
  EXPECT_EQ(kEnoughHits, Race(mgr_file::SplitPath(Home()).first, "bob", kControlTries, mend).hits);
}

}  // namespace
