#include "framework/conf_defer.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/log_capture.h"
#include "tests/support/sys_fault.h"
#include "tests/unit/framework/conf_fixture.h"

namespace {

using conf_fixture::AddUser;
using conf_fixture::ConfTest;
using conf_fixture::ErrorOf;
using conf_fixture::Line;
using conf_fixture::Names;
using conf_fixture::SetPassword;
using conf_fixture::UsersConfig;

using DeferSavesTest = ConfTest;

TEST_F(DeferSavesTest, ManyPostsAreSavedOnceAtTheEnd) {
  const auto users = Open();
  {
    const DeferSaves scope;
    for (int user = 0; user < 50; ++user) {
      AddUser(users, "u" + std::to_string(user));
      SetPassword(users, "u" + std::to_string(user), "x");
    }
    users->Assert("u7");
    users->_Delete(true);
    EXPECT_EQ(::access(path_.c_str(), F_OK), -1);
    EXPECT_EQ(Names(Open()).size(), 49U) << "others see what is not saved yet";
  }
  EXPECT_EQ(UsersConfig::TakeReasons().size(), 1U);
  EXPECT_NE(Content().find("u49:x:"), std::string::npos);
}

TEST_F(DeferSavesTest, SaveMakesDurableWhatWasPosted) {
  const auto users = Open();
  DeferSaves scope;
  AddUser(users, "a");
  scope.Save();
  EXPECT_EQ(Content().substr(0, 2), "a:");
  scope.Save();
  EXPECT_EQ(UsersConfig::TakeReasons().size(), 1U);
}

// Posts of a scope don't look at the file each time; the save does.
TEST_F(DeferSavesTest, ALineThatSomebodyElseHasAddedMeanwhileStays) {
  const auto users = Open();
  DeferSaves scope;
  AddUser(users, "a");
  Write("b:theirs:1:1::/h:::\n");
  std::string error = ErrorOf([&] { AddUser(users, "b"); });
  if (error.empty()) error = ErrorOf([&] { scope.Save(); });
  EXPECT_NE(error.find("exists"), std::string::npos) << error;
  scope.Save();
  EXPECT_EQ(Content().substr(0, 9), "b:theirs:");
  EXPECT_EQ(Names(Open()), (std::vector<std::string>{"b", "a"}));
}

TEST_F(DeferSavesTest, AnInnerScopeSavesNothingOfItsOwn) {
  const auto users = Open();
  const DeferSaves scope;
  {
    const DeferSaves inner;
    AddUser(users, "a");
  }
  EXPECT_EQ(UsersConfig::TakeReasons().size(), 0U);
}

TEST_F(DeferSavesTest, TheScopeIsItsThreadsAlone) {
  const auto users = Open();
  const DeferSaves scope;
  std::thread([this] { AddUser(Open(), "b"); }).join();
  EXPECT_EQ(Content().substr(0, 2), "b:");
  // A save by another thread takes along what this one has deferred.
  AddUser(users, "a");
  std::thread([this] { AddUser(Open(), "c"); }).join();
  EXPECT_NE(Content().find("a:"), std::string::npos);
}

TEST_F(DeferSavesTest, ASaveIsMadeWhenASecondHasPassed) {
  const auto users = Open();
  const DeferSaves scope;
  AddUser(users, "a");
  users->First();
  EXPECT_EQ(UsersConfig::TakeReasons().size(), 0U);
  // The clock that counts is the system's own.
  std::this_thread::sleep_for(std::chrono::milliseconds(1010));
  users->First();
  EXPECT_EQ(UsersConfig::TakeReasons().size(), 1U);
}

TEST_F(DeferSavesTest, AFailureIsToldByTheNextSaveAndTheChangeIsGone) {
  Write(Line("a", "old") + "\n");
  const auto users = Open();
  DeferSaves scope;
  SetPassword(users, "a", "new");
  {
    support::SysFault fault;
    fault.FailCall("fsync", EIO);
    EXPECT_NE(ErrorOf([&] { scope.Save(); }).find("fsync"), std::string::npos);
  }
  EXPECT_EQ(ErrorOf([&] { scope.Save(); }), "");
  users->Assert("a");
  EXPECT_EQ(users->passwd.Str(), "old");
  EXPECT_EQ(Content(), Line("a", "old") + "\n");
}

TEST_F(DeferSavesTest, ARefusalBySomebodyElsesEditIsToldToo) {
  Write(Line("a") + "\n");
  const auto users = Open();
  DeferSaves scope;
  AddUser(users, "b");
  Write(Line("a") + "\n" + Line("b", "by hand") + "\n");
  EXPECT_EQ(ErrorOf([&] { scope.Save(); }), "exists: name: b");
  EXPECT_EQ(Content(), Line("a") + "\n" + Line("b", "by hand") + "\n");
}

TEST_F(DeferSavesTest, OfSeveralRefusalsInFilesByTurnsTheFirstIsTold) {
  const std::string other_path = folder_ / "others";
  const auto users = Open();
  const auto others = UsersConfig::Open(other_path);
  DeferSaves scope;
  AddUser(users, "a");
  AddUser(others, "b");
  AddUser(others, "c");
  AddUser(users, "d");
  AddUser(others, "e");
  Write(Line("d", "by hand") + "\n");
  folder_.Write("others", Line("b", "by hand") + "\n" + Line("c", "by hand") + "\n");
  EXPECT_EQ(ErrorOf([&] { scope.Save(); }), "exists: name: b");
  EXPECT_EQ(ErrorOf([&] { scope.Save(); }), "");
  EXPECT_EQ(Names(Open()), (std::vector<std::string>{"d", "a"}));
  EXPECT_EQ(Names(UsersConfig::Open(other_path)), (std::vector<std::string>{"b", "c", "e"}));
}

TEST_F(DeferSavesTest, AFailureAtTheEndIsLogged) {
  support::LogCapture log;
  log.ExpectError("a deferred change was not saved: file: " + path_ + ": fsync");
  const auto users = Open();
  support::SysFault fault;
  fault.FailCall("fsync", EIO);
  const DeferSaves scope;
  AddUser(users, "a");
}

TEST_F(DeferSavesTest, AScopeThatNeverSavesInBetweenSavesOnceAtItsEnd) {
  Write("");
  {
    const DeferSaves defer(DeferSaves::Between::kNever);
    AddUser(Open(), "a");
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    AddUser(Open(), "b");
    EXPECT_EQ("", Content());
  }
  EXPECT_EQ(1u, UsersConfig::TakeReasons().size());
}

}  // namespace
