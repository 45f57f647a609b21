#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <ostream>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "framework/conf_defer.h"
#include "framework/descriptor.h"
#include "tests/support/disk_image.h"
#include "tests/support/sys_fault.h"
#include "tests/unit/framework/conf_fixture.h"

/// The engine when the power is cut at any of its system calls, on disks that hold what was synced
/// and nothing else.
namespace {

using conf_fixture::AddUser;
using conf_fixture::ErrorOf;
using conf_fixture::Line;
using conf_fixture::SetPassword;
using conf_fixture::UsersConfig;

const std::string kBefore = "# head\n" + Line("a", "old") + "\n" + Line("b", "old") + "\n";
const std::string kChanged = "# head\n" + Line("a", "new") + "\n" + Line("b", "old") + "\n";

/// Something that replaces the file at a path, and what may be in it then.
struct Operation {
  const char* name;
  std::function<void(const std::string& path)> act;
  std::string after;
  std::string half = kBefore;  // on the way
  bool is_new = false;         // there is no file before
};

std::string Added(const std::string& name) {
  return name + "::1000:1000::/home/" + name +
         ":::maildir:~/.maildir userdb_quota_rule=*:bytes=0M\n";
}

const Operation kChange = {
    "change", [](const auto& path) { SetPassword(UsersConfig::Open(path), "a", "new"); }, kChanged};

std::vector<Operation> Operations() {
  std::vector<Operation> operations = {kChange};
  operations.push_back({"add", [](const auto& path) { AddUser(UsersConfig::Open(path), "n"); },
                        kBefore + Added("n")});
  operations.push_back({"remove",
                        [](const auto& path) {
                          const auto users = UsersConfig::Open(path);
                          users->Assert("b");
                          users->_Delete(true);
                        },
                        "# head\n" + Line("a", "old") + "\n"});
  operations.push_back({"two_saves",
                        [](const auto& path) {
                          SetPassword(UsersConfig::Open(path), "a", "new");
                          AddUser(UsersConfig::Open(path), "n");
                        },
                        kChanged + Added("n"), kChanged});
  operations.push_back({"deferred",
                        [](const auto& path) {
                          const DeferSaves scope;
                          SetPassword(UsersConfig::Open(path), "a", "new");
                          AddUser(UsersConfig::Open(path), "n");
                          DeferSaves().Save();
                        },
                        kChanged + Added("n")});
  operations.push_back({"first_save",
                        [](const auto& path) { AddUser(UsersConfig::Open(path), "n"); }, Added("n"),
                        "", true});
  operations.push_back({"through_a_link",
                        [](const auto& path) {
                          std::filesystem::create_symlink("users", path + ".link");
                          SetPassword(UsersConfig::Open(path + ".link"), "a", "new");
                        },
                        kChanged});
  return operations;
}

// How others do it.
void Naive(const std::string& path, bool sync_file, bool sync_directory) {
  const std::string fresh = path + ".tmp";
  const Descriptor file(::open(fresh.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0640));
  ASSERT_EQ(::write(file.get(), kChanged.data(), kChanged.size()),
            static_cast<ssize_t>(kChanged.size()));
  if (sync_file) ::fsync(file.get());
  ASSERT_EQ(0, ::rename(fresh.c_str(), path.c_str()));
  const Descriptor folder(
      ::open(path.substr(0, path.rfind('/')).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (sync_directory) ::fsync(folder.get());
}

/// How much of what was not synced has reached the disk all the same.
enum class Writing { kLazy, kEager };

/// One disk and what power cuts during one operation leave of it.
class PowerCuts {
 public:
  PowerCuts(support::DiskImage& disk, Operation operation, Writing writing)
      : disk_(disk), operation_(std::move(operation)), writing_(writing) {}

  /// Does the operation and keeps the disk as it was before each call that may change it and after
  /// the end.
  void Run() {
    ASSERT_TRUE(disk_.Mount());
    Prepare();
    {
      support::SysFault calls;
      calls.OnCall([this](std::string_view call, std::size_t) {
        if (Changes(call)) Cut(false);
      });
      EXPECT_EQ("", ErrorOf([this] { operation_.act(Path()); }));
    }
    Cut(true);
    disk_.Unmount();
  }

  /// Looks at every kept disk. What was found wrong goes to damaged() and lost().
  void Look() {
    for (const Point& point : points_) {
      disk_.Put(states_[point.state]);
      if (!disk_.Mount()) return;
      Judge(point);
      disk_.Unmount();
    }
  }

  std::size_t cuts() const { return cuts_; }
  std::size_t states() const { return states_.size(); }
  /// Neither the old content nor the new, nor one on the way; or with another owner or mode.
  std::size_t damaged() const { return damaged_; }
  /// Without the new content although success had been told.
  std::size_t lost() const { return lost_; }
  std::size_t unhealed() const { return unhealed_; }

 private:
  // A state of the disk, before the operation had ended or afterwards.
  struct Point {
    std::size_t state;
    bool acknowledged;
  };

  static bool Changes(std::string_view call) {
    static const std::set<std::string_view> kOnlyLook = {
        "stat", "fstat", "read", "flistxattr", "fgetxattr", "flock", "fcntl", "readlink"};
    return kOnlyLook.count(call) == 0;
  }

  std::string Path() const { return disk_.folder() + "/users"; }

  void Prepare() {
    std::filesystem::remove(Path() + ".link");
    std::filesystem::remove(Path());
    if (!operation_.is_new) {
      const Descriptor file(::open(Path().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
      ASSERT_EQ(::write(file.get(), kBefore.data(), kBefore.size()),
                static_cast<ssize_t>(kBefore.size()));
      ASSERT_EQ(0, ::fchown(file.get(), 0, 2345));
      ASSERT_EQ(0, ::fchmod(file.get(), 0640));
    }
    SyncDisk();
  }

  // This file system alone: others under test must keep what has not reached their disks.
  void SyncDisk() const {
    const Descriptor folder(::open(disk_.folder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ::syncfs(folder.get());
  }

  void Cut(bool acknowledged) {
    ++cuts_;
    if (writing_ == Writing::kEager) SyncDisk();
    support::DiskState state = disk_.Take();
    if (states_.empty() || !(state == states_.back())) states_.push_back(std::move(state));
    const Point point{states_.size() - 1, acknowledged};
    const bool known = !points_.empty() && points_.back().state == point.state &&
                       points_.back().acknowledged == acknowledged;
    if (!known) points_.push_back(point);
  }

  bool IsWhole(const std::string& content, bool exists) const {
    if (operation_.is_new && !exists) return true;
    if (content == operation_.after) return true;
    return !operation_.is_new && (content == kBefore || content == operation_.half);
  }

  bool KeepsOwnerAndMode() const {
    struct stat info {};
    if (operation_.is_new || ::stat(Path().c_str(), &info) != 0) return operation_.is_new;
    return info.st_uid == 0 && info.st_gid == 2345 && (info.st_mode & 07777) == 0640;
  }

  void Judge(const Point& point) {
    const bool exists = std::filesystem::exists(Path());
    const std::string content = exists ? support::ReadFile(Path()) : "";
    const bool whole = IsWhole(content, exists) && KeepsOwnerAndMode();
    if (!whole) ++damaged_;
    if (point.acknowledged && content != operation_.after) ++lost_;
    if (whole && !Heals()) ++unhealed_;
  }

  // The next run works and sweeps what is left.
  bool Heals() const {
    const std::string error = ErrorOf([this] { AddUser(UsersConfig::Open(Path()), "next"); });
    if (!error.empty()) return false;
    for (const auto& entry : std::filesystem::directory_iterator(disk_.folder())) {
      const std::string name = entry.path().filename();
      if (name.find(".brisq-new") != std::string::npos ||
          name.find(".brisq-next") != std::string::npos) {
        return false;
      }
    }
    return support::ReadFile(Path()).find("\nnext:") != std::string::npos ||
           support::ReadFile(Path()).starts_with("next:");
  }

  support::DiskImage& disk_;
  const Operation operation_;
  const Writing writing_;
  std::vector<support::DiskState> states_;
  std::vector<Point> points_;
  std::size_t cuts_ = 0;
  std::size_t damaged_ = 0;
  std::size_t lost_ = 0;
  std::size_t unhealed_ = 0;
};

bool LongForm() { return std::getenv("BRISQ_SOAK") != nullptr; }

class ConfPowerTest : public ::testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    if (!disk_.why_not().empty()) GTEST_SKIP() << "power cuts not tried: " << disk_.why_not();
  }

  PowerCuts Try(const Operation& operation, Writing writing = Writing::kLazy) {
    PowerCuts cuts(disk_, operation, writing);
    cuts.Run();
    cuts.Look();
    std::printf(
        "%s, %s, disk written %s: power cuts %zu, different disks %zu, damaged %zu, lost %zu\n",
        GetParam(), operation.name, writing == Writing::kLazy ? "late" : "early", cuts.cuts(),
        cuts.states(), cuts.damaged(), cuts.lost());
    return cuts;
  }

  support::DiskImage disk_{GetParam()};
};

// The single change in every run; the other operations in the long one.
TEST_P(ConfPowerTest, APowerCutAtAnyCallLeavesTheOldFileOrTheNewAndAfterSuccessTheNew) {
  const std::vector<Operation> operations =
      LongForm() ? Operations() : std::vector<Operation>{kChange};
  for (const Operation& operation : operations) {
    for (const Writing writing : {Writing::kLazy, Writing::kEager}) {
      SCOPED_TRACE(operation.name);
      const PowerCuts cuts = Try(operation, writing);
      EXPECT_GE(cuts.cuts(), 12U);
      EXPECT_GE(cuts.states(), 2U) << "nothing reached the disk";
      EXPECT_EQ(cuts.damaged(), 0U);
      EXPECT_EQ(cuts.lost(), 0U);
      EXPECT_EQ(cuts.unhealed(), 0U);
      if (HasFailure()) return;
    }
  }
}

// The harness sees what it is for: writers that leave out one of the two syncs lose. The system may
// write by itself just then, and such a writer was lucky, so each has several tries.
TEST_P(ConfPowerTest, WritersThatLeaveOutASyncAreCaught) {
  constexpr int kTries = 10;
  const auto caught = [this](const char* name, bool file, bool directory) {
    for (int i = 0; i < kTries; ++i) {
      const Operation naive{name, [=](const auto& path) { Naive(path, file, directory); },
                            kChanged};
      if (Try(naive).lost() > 0) return true;
    }
    return false;
  };
  EXPECT_TRUE(caught("control without a sync of the file", false, true));
  EXPECT_TRUE(caught("control without a sync of the directory", true, false));
}

INSTANTIATE_TEST_SUITE_P(FileSystems, ConfPowerTest, ::testing::Values("ext4", "xfs", "btrfs"),
                         [](const auto& type) { return std::string(type.param); });

}  // namespace
