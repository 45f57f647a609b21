#include "panel/file_stamps.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "panel/refresh_watch.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using brisq_db::FileIsChanged;
using brisq_panel::RecordStamp;
using testing::HasSubstr;

std::string CurrentStamp(const std::string& path) { return brisq_panel::StampText(StampAt(path)); }

class Stamps : public panel_test::PanelTest {
 protected:
  Stamps() { dir_.Write("passwd", "one\n"); }

  bool IsChanged() { return FileIsChanged(path_, text_); }
  void Record() { RecordStamp(path_, CurrentStamp(path_)); }
  void SetTimes(const timespec& modified) {
    const timespec times[2] = {modified, modified};
    ASSERT_EQ(0, ::utimensat(AT_FDCWD, path_.c_str(), times, 0));
  }
  timespec Modified() {
    struct stat state {};
    EXPECT_EQ(0, ::stat(path_.c_str(), &state));
    return state.st_mtim;
  }

  const std::string path_ = dir_ / "passwd";
  std::string text_ = "left over";
};

TEST_F(Stamps, AFileThatWasNeverRecordedHasChanged) {
  EXPECT_TRUE(IsChanged());
  EXPECT_EQ("not read before", text_);
}

TEST_F(Stamps, ARecordedFileHasNotChanged) {
  Record();
  EXPECT_FALSE(IsChanged());
  EXPECT_EQ("", text_);
}

TEST_F(Stamps, LookingRecordsNothing) {
  IsChanged();
  EXPECT_TRUE(IsChanged());
}

TEST_F(Stamps, AMissingFileHasNotChanged) {
  text_ = "x";
  EXPECT_FALSE(FileIsChanged(dir_ / "missing", text_));
  EXPECT_EQ("", text_);
  Record();
  std::filesystem::remove(path_);
  EXPECT_FALSE(IsChanged());
  EXPECT_FALSE(FileIsChanged(path_ + "/below a file", text_));
}

TEST_F(Stamps, EachPartOfTheStateCounts) {
  struct Case {
    const char* name;
    std::function<void()> change;
    const char* words;
  };
  const Case cases[] = {
      {"size", [&] { std::ofstream(path_, std::ios::app) << "two\n"; }, "size"},
      {"content of one size", [&] { dir_.Write("passwd", "two\n"); }, "time"},
      {"another file in its place",
       [&] {
         dir_.Write("fresh", "one\n");
         std::filesystem::rename(dir_ / "fresh", path_);
       },
       "inode"},
      {"modification time set back",
       [&] {
         SetTimes({1000, 5});
       },
       "modification time"},
      {"mode, which changes the change time", [&] { ::chmod(path_.c_str(), 0600); }, "change time"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    dir_.Write("passwd", "one\n");
    ASSERT_EQ(0, ::chmod(path_.c_str(), 0644));
    const timespec old = {1, 1};
    SetTimes(old);
    Record();
    // Coarse clocks step by a few milliseconds: wait for the next step.
    const std::string before = CurrentStamp(path_);
    do {
      c.change();
    } while (CurrentStamp(path_) == before);
    EXPECT_TRUE(IsChanged());
    EXPECT_THAT(text_, HasSubstr(c.words));
  }
}

// The step of the file system's clock is what a look at the stamp waits for.
TEST_F(Stamps, AChangeThatFollowsALookAtOnceIsSeen) {
  for (int i = 0; i < 50; ++i) {
    dir_.Write("passwd", "one\n");
    const ConfStamp before = brisq_panel::SettledStamp(path_);
    dir_.Write("passwd", "two\n");
    EXPECT_FALSE(StampAt(path_) == before) << "round " << i;
  }
}

TEST_F(Stamps, ALinkStandsForItsFile) {
  std::filesystem::create_symlink(path_, dir_ / "link");
  EXPECT_EQ(CurrentStamp(path_), CurrentStamp(dir_ / "link"));
}

TEST_F(Stamps, FilesAreRecordedOneByOne) {
  dir_.Write("other", "x");
  Record();
  EXPECT_TRUE(FileIsChanged(dir_ / "other", text_));
  RecordStamp(dir_ / "other", CurrentStamp(dir_ / "other"));
  EXPECT_FALSE(FileIsChanged(dir_ / "other", text_));
  EXPECT_FALSE(IsChanged());
}

TEST_F(Stamps, ARecordIsReplacedAndForgotten) {
  Record();
  RecordStamp(path_, "1 2 3 4 5");
  EXPECT_EQ("1 2 3 4 5", brisq_panel::RecordedStamp(path_));
  RecordStamp(path_, "");
  EXPECT_EQ("", brisq_panel::RecordedStamp(path_));
  EXPECT_TRUE(IsChanged());
}

}  // namespace
