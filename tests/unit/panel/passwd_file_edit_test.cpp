#include "panel/passwd_file_edit.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "framework/config_file.h"
#include "panel/password_line.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using brisq_panel::PasswdFileEdit;
using brisq_panel::StoreHash;
using panel_test::ErrorOf;

std::string Line(const std::string& name, const std::string& hash = "{X}old") {
  return name + ":" + hash + ":1:1::/h:::m\n";
}

const std::string kBefore = "# head\n" + Line("a@x") + Line("b@x");

class PasswdFileEditTest : public panel_test::PanelTest {
 protected:
  PasswdFileEditTest() {
    mgr_cf::SetPath("dovecot-passwd", path_);
    PasswdFileEdit::SetFolder(dir_.MakeFolder("state"));
    dir_.Write("passwd", kBefore);
  }

  std::string File() const { return dir_.Read("passwd"); }
  static void Change(const PasswdFileEdit& edit, const std::string& content) {
    std::filesystem::remove(edit.copy());
    FILE* file = std::fopen(edit.copy().c_str(), "we");
    std::fputs(content.c_str(), file);
    std::fclose(file);
  }
  std::string Left() const {
    std::string names;
    for (const auto& entry : std::filesystem::directory_iterator(dir_ / "state")) {
      names += entry.path().filename().string() + " ";
    }
    return names;
  }

  const std::string path_ = dir_ / "passwd";
};

TEST_F(PasswdFileEditTest, TheCopyIsPrivateAndGoesWithTheEdit) {
  const mode_t mask = ::umask(0);
  {
    const PasswdFileEdit edit;
    EXPECT_EQ(kBefore, support::ReadFile(edit.copy()));
    struct stat info {};
    ASSERT_EQ(0, ::stat(edit.copy().c_str(), &info));
    EXPECT_EQ(0600U, info.st_mode & 07777);
    ASSERT_EQ(0, ::stat(std::filesystem::path(edit.copy()).parent_path().c_str(), &info));
    EXPECT_EQ(0700U, info.st_mode & 07777);
  }
  ::umask(mask);
  EXPECT_EQ("passwd-file-edit.lock ", Left());
}

TEST_F(PasswdFileEditTest, WhatAKilledEditLeftGoesWithTheNext) {
  dir_.Write("state/passwd-file-edit/passwd-file", "old");
  dir_.Write("state/passwd-file-edit/.swap", "old");
  { const PasswdFileEdit edit; }
  EXPECT_EQ("passwd-file-edit.lock ", Left());
}

TEST_F(PasswdFileEditTest, AnEditIsSavedByteForByte) {
  PasswdFileEdit edit;
  EXPECT_FALSE(edit.Look().changed);
  const std::string edited = Line("b@x", "{X}new") + "\n# between\n" + Line("a@x");
  Change(edit, edited);
  const auto review = edit.Look();
  EXPECT_TRUE(review.changed);
  EXPECT_TRUE(review.findings.empty());
  edit.Save();
  EXPECT_EQ(edited, File());
}

TEST_F(PasswdFileEditTest, FindingsNameTheLinesOfTheCopy) {
  PasswdFileEdit edit;
  Change(edit, kBefore + "cut@x:{PLAIN}");
  const auto review = edit.Look();
  ASSERT_EQ(2U, review.findings.size());
  EXPECT_EQ(edit.copy() + ", line 4", review.findings[0].object);
  EXPECT_EQ(kBefore, File());
}

TEST_F(PasswdFileEditTest, ChangesByOthersMeanwhileAreKept) {
  PasswdFileEdit edit;
  Change(edit, "# head\n" + Line("a@x") + "b@x:{X}old:2:2::/h:::m\n" + Line("c@x"));
  edit.Look();
  StoreHash("b@x", "{X}theirs");
  dir_.Write("passwd", File() + Line("d@x"));
  edit.Save();
  EXPECT_EQ("# head\n" + Line("a@x") + "b@x:{X}theirs:2:2::/h:::m\n" + Line("d@x") + Line("c@x"),
            File());
}

TEST_F(PasswdFileEditTest, WhereBothHaveChangedTheSameNothingIsChangedAndTheEditIsKept) {
  const std::string mine = "# mine\n" + Line("a@x", "{X}mine") + Line("b@x");
  {
    PasswdFileEdit edit;
    Change(edit, mine);
    edit.Look();
    StoreHash("a@x", "{X}theirs");
    const std::string kept = dir_ / "state/passwd-file.refused";
    const mgr_err::Error error = ErrorOf([&] { edit.Save(); });
    EXPECT_EQ("later: " + path_ +
                  ": unchanged: a@x changed by somebody else meanwhile; your version is kept as " +
                  kept,
              std::string(error.what()));
  }
  EXPECT_EQ("# head\n" + Line("a@x", "{X}theirs") + Line("b@x"), File());
  EXPECT_EQ(mine, dir_.Read("state/passwd-file.refused"));
}

TEST_F(PasswdFileEditTest, AnEditThatCannotBePutAsideStaysWhereItIs) {
  const std::string mine = "# mine\n" + Line("a@x", "{X}mine") + Line("b@x");
  dir_.Write("state/passwd-file.refused/in the way", "");
  {
    PasswdFileEdit edit;
    Change(edit, mine);
    edit.Look();
    StoreHash("a@x", "{X}theirs");
    const mgr_err::Error error = ErrorOf([&] { edit.Save(); });
    EXPECT_EQ("unchanged: a@x changed by somebody else meanwhile; your version is still " +
                  edit.copy() + ": copy it away, the next edit removes it",
              error.value());
  }
  EXPECT_EQ(mine, dir_.Read("state/passwd-file-edit/passwd-file"));
}

TEST_F(PasswdFileEditTest, OneEditGoesOnAtATime) {
  const PasswdFileEdit edit;
  EXPECT_EQ("locked: " + path_ + ": is being edited by brisq passwd-file edit",
            std::string(ErrorOf([] { const PasswdFileEdit other; }).what()));
}

TEST_F(PasswdFileEditTest, OthersGoOnChangingTheFileMeanwhile) {
  const PasswdFileEdit edit;
  StoreHash("a@x", "{X}theirs");
  EXPECT_EQ("# head\n" + Line("a@x", "{X}theirs") + Line("b@x"), File());
}

TEST_F(PasswdFileEditTest, WhatIsNoFileCannotBeEdited) {
  ASSERT_EQ(0, ::unlink(path_.c_str()));
  EXPECT_EQ("file: " + path_ + ": does not exist",
            std::string(ErrorOf([] { const PasswdFileEdit edit; }).what()));
  ASSERT_EQ(0, ::mkfifo(path_.c_str(), 0600));
  EXPECT_EQ("file", ErrorOf([] { const PasswdFileEdit edit; }).type());
}

TEST_F(PasswdFileEditTest, AnEditorThatLeavesNoFileIsAnError) {
  PasswdFileEdit edit;
  ASSERT_EQ(0, ::unlink(edit.copy().c_str()));
  EXPECT_EQ("file", ErrorOf([&] { edit.Look(); }).type());
}

}  // namespace
