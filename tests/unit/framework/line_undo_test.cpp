#include "framework/line_undo.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "framework/seal.h"
#include "mgr_err.h"
#include "tests/support/sys_fault.h"
#include "tests/support/temp_dir.h"

namespace {

using line_undo::Change;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

const Change kAdded{"u", "", "u:1", ""};
const Change kSet{"u", "u:1", "u:2", ""};
const Change kRemoved{"u", "u:2", "", "a:1"};

struct Case {
  const char* name;
  std::string found;
  std::vector<Change> changes;
  std::string left;  // content afterwards
  std::size_t somebody_elses = 0;
};

TEST(LineUndo, EachChangeIsTakenBackFromWhereItStands) {
  const std::vector<Case> cases = {
      {"added", "a:1\nu:1\n", {kAdded}, "a:1\n"},
      {"added, not saved", "a:1\n", {kAdded}, "a:1\n"},
      {"added, changed by hand", "u:9\n", {kAdded}, "u:9\n", 1},
      {"added and set", "a:1\nu:2\nb:1\n", {kAdded, kSet}, "a:1\nb:1\n"},
      {"added, set not saved", "a:1\nu:1\n", {kAdded, kSet}, "a:1\n"},
      {"set", "u:2\n", {kSet}, "u:1\n"},
      {"set, undone already", "u:1\n", {kSet}, "u:1\n"},
      {"set, changed by hand", "u:3\n", {kSet}, "u:3\n", 1},
      {"set, gone by hand", "a:1\n", {kSet}, "a:1\n", 1},
      {"set, end of line kept", "u:2\r\na:1\r\n", {kSet}, "u:1\r\na:1\r\n"},
      {"set, no end of line", "u:2", {kSet}, "u:1"},
      {"removed", "a:1\nb:1\n", {kRemoved}, "a:1\nu:2\nb:1\n"},
      {"removed behind a last line without end", "a:1", {kRemoved}, "a:1\nu:2\n"},
      {"removed, not saved", "a:1\nu:2\nb:1\n", {kRemoved}, "a:1\nu:2\nb:1\n"},
      {"removed, neighbour gone", "b:1\n", {kRemoved}, "b:1\nu:2\n"},
      {"removed first line", "b:1\n", {{"u", "u:2", "", ""}}, "u:2\nb:1\n"},
      {"removed last of all", "", {{"u", "u:2", "", ""}}, "u:2\n"},
      {"removed, made anew by hand", "u:7\n", {kRemoved}, "u:7\n", 1},
      {"removed from CR LF", "a:1\r\n", {kRemoved}, "a:1\r\nu:2\r\n"},
      {"a longer name is another one", "u2:1\na:1\n", {kRemoved}, "u2:1\na:1\nu:2\n"},
      {"all of it", "a:1\n", {kAdded, kSet, kRemoved}, "a:1\n"},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    const line_undo::Undone undone = line_undo::Undo(one.found, one.changes, ':');
    EXPECT_EQ(one.left, undone.content);
    EXPECT_EQ(one.somebody_elses, undone.left.size());
    EXPECT_EQ(one.found != one.left, undone.changed);
    // What a killed recovery has done is found again by the next one.
    const line_undo::Undone again = line_undo::Undo(undone.content, one.changes, ':');
    EXPECT_EQ(one.left, again.content);
    EXPECT_EQ(one.somebody_elses, again.left.size());
  }
}

class LineUndoFile : public testing::Test {
 protected:
  LineUndoFile() { mgr_seal::SetKeyFile(dir_ / "seal.key"); }

  support::TempDir dir_;
  const std::string file_ = dir_.Write("users", "a:1\nu:2\n");
};

TEST_F(LineUndoFile, AStepHoldsTheTextsSealed) {
  const Change change{"u", "u:hash-before", "u:hash-after", "a:hash-behind"};
  const journal::Step step = line_undo::ToStep(change, file_, "line of u changed", "k");
  EXPECT_THAT(journal::Text(step), Not(HasSubstr("hash-")));
  EXPECT_EQ(change, line_undo::FromStep(step));
  EXPECT_EQ(file_, step.Value("file"));
}

TEST_F(LineUndoFile, AFileIsWrittenOnlyWhenThereIsSomethingToTakeBack) {
  EXPECT_TRUE(line_undo::UndoInFile(file_, {kSet}).changed);
  EXPECT_EQ("a:1\nu:1\n", dir_.Read("users"));
  EXPECT_FALSE(line_undo::UndoInFile(file_, {kSet}).changed);
  EXPECT_THAT(line_undo::UndoInFile(file_, {{"u", "u:8", "u:9", ""}}).left, ElementsAre("u"));
  EXPECT_EQ("a:1\nu:1\n", dir_.Read("users"));
}

TEST_F(LineUndoFile, WhatAKilledSaveHasLeftIsSwept) {
  dir_.Write(".users.brisq-new", "half");
  line_undo::UndoInFile(file_, {kSet});
  EXPECT_FALSE(std::filesystem::exists(dir_ / ".users.brisq-new"));
}

TEST_F(LineUndoFile, AFileThatIsGoneStaysGone) {
  const std::string missing = dir_ / "missing";
  EXPECT_FALSE(line_undo::UndoInFile(missing, {kSet}).changed);
  EXPECT_FALSE(std::filesystem::exists(missing));
}

// Every call of the save, in turn, is refused: the file is the old or the new one.
TEST_F(LineUndoFile, ARefusalLeavesTheFileWhole) {
  for (std::size_t number = 1;; ++number) {
    SCOPED_TRACE(number);
    dir_.Write("users", "a:1\nu:2\n");
    support::SysFault fault;
    fault.FailNumber(number, EIO, false);
    try {
      line_undo::UndoInFile(file_, {kSet});
    } catch (const mgr_err::Error&) {
      EXPECT_TRUE(fault.Failed());
    }
    const std::string content = support::ReadFile(file_);
    EXPECT_TRUE(content == "a:1\nu:2\n" || content == "a:1\nu:1\n") << content;
    if (!fault.Failed()) {
      EXPECT_GT(number, 10u);
      break;
    }
  }
}

}  // namespace
