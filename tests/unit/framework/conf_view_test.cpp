#include "framework/conf_view.h"

#include <gtest/gtest.h>
#include <stdio.h>

#include <atomic>
#include <chrono>
#include <map>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "framework/conf_defer.h"
#include "framework/request.h"
#include "tests/support/log_capture.h"
#include "tests/unit/framework/conf_fixture.h"

namespace {

using conf_fixture::AddUser;
using conf_fixture::ConfTest;
using conf_fixture::ErrorOf;
using conf_fixture::Line;
using conf_fixture::Names;
using conf_fixture::SetPassword;
using conf_fixture::Users;
using conf_fixture::UsersConfig;

class ConfViewTest : public ConfTest {
 protected:
  void WriteLines(const std::vector<std::string>& names) const {
    std::string content;
    for (const std::string& name : names) content += Line(name) + "\n";
    Write(content);
  }
  static void Remove(const Cursor<Users>& users, const std::string& name) {
    users->Assert(name);
    users->_Delete(true);
  }
};

TEST_F(ConfViewTest, CursorsWalkIndependently) {
  WriteLines({"a", "b", "c"});
  const auto one = Open();
  const auto other = Open();
  one->First();
  one->Next();
  other->First();
  EXPECT_EQ(one->name.Str(), "b");
  EXPECT_EQ(other->name.Str(), "a");
}

TEST_F(ConfViewTest, CopiesOfACursorShareItsPlace) {
  WriteLines({"a", "b"});
  const auto one = Open();
  const Cursor<Users> copy = one;
  one->First();
  one->Next();
  EXPECT_EQ(copy->name.Str(), "b");
}

TEST_F(ConfViewTest, AWalkSeesLinesComeChangeAndGo) {
  WriteLines({"a", "b", "c", "d"});
  const auto walk = Open();
  const auto other = Open();
  walk->First();
  SetPassword(other, "a", "new");
  EXPECT_EQ(walk->passwd.Str(), "new");
  Remove(other, "b");
  walk->Next();
  EXPECT_EQ(walk->name.Str(), "c");
  Remove(other, "c");
  EXPECT_EQ(walk->name.Str(), "");
  AddUser(other, "e");
  std::string rest;
  for (walk->Next(); !walk->Eof(); walk->Next()) rest += walk->name.Str();
  EXPECT_EQ(rest, "de");
}

TEST_F(ConfViewTest, AWalkGoesOnBehindItsLineWhenTheFileIsReplaced) {
  const struct {
    const char* name;
    std::vector<std::string> after;
    std::string current;
    std::string rest;
  } cases[] = {
      {"same lines", {"a", "b", "c", "d"}, "b", "cd"},
      {"line gone", {"a", "c", "d"}, "", "cd"},
      {"line and its follower gone", {"a", "d"}, "", "d"},
      {"all behind it gone", {"a"}, "", ""},
      {"everything gone", {}, "", ""},
      {"lines before it gone", {"b", "c"}, "b", "c"},
      {"other lines", {"x", "a", "y", "b", "z", "c"}, "b", "zc"},
      {"other order", {"d", "c", "b", "a"}, "b", "a"},
      {"gone, other order", {"d", "c", "a"}, "", "ca"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    WriteLines({"a", "b", "c", "d"});
    const auto walk = Open();
    walk->Assert("b");
    WriteLines(test.after);
    Names(Open());  // somebody else's walk reads the file anew
    EXPECT_EQ(walk->name.Str(), test.current);
    std::string rest;
    for (walk->Next(); !walk->Eof(); walk->Next()) rest += walk->name.Str();
    EXPECT_EQ(rest, test.rest);
  }
}

TEST_F(ConfViewTest, APlaceOutlivesSeveralReplacements) {
  WriteLines({"a", "b", "c", "d", "e"});
  const auto walk = Open();
  walk->Assert("b");
  for (const auto& names :
       {std::vector<std::string>{"a", "c", "d", "e"}, std::vector<std::string>{"a", "d", "e"},
        std::vector<std::string>{"a", "b", "e"}}) {
    WriteLines(names);
    Names(Open());
    EXPECT_EQ(walk->name.Str(), "") << "a line of that name is another one";
  }
  walk->Next();
  EXPECT_EQ(walk->name.Str(), "e");
}

TEST_F(ConfViewTest, APostOfALineThatIsGoneIsRefused) {
  WriteLines({"a", "b"});
  const auto users = Open();
  users->Assert("b");
  users->passwd.Set("new");
  WriteLines({"a"});
  EXPECT_EQ(ErrorOf([&] { users->Post(""); }), "missed: name: b");
  EXPECT_EQ(Content(), Line("a") + "\n");
  users->First();
  users->Next();
  EXPECT_EQ(ErrorOf([&] { users->Post(""); }), "missed: name: no line is current");
  EXPECT_EQ(ErrorOf([&] { users->_Delete(true); }), "missed: name: no line is current");
}

std::vector<std::string> Stored(const Cursor<Users>& users) {
  const auto& columns = users->Stored();
  return {columns.begin(), columns.end()};
}

TEST_F(ConfViewTest, AllColumnsOfALineAreHadAtOnce) {
  WriteLines({"a", "b"});
  const auto walk = Open();
  const auto other = Open();
  EXPECT_TRUE(Stored(walk).empty());
  walk->First();
  walk->Next();
  std::vector<std::string> want;
  for (const dd::Field* field : walk->Fields()) want.push_back(field->Str());
  EXPECT_EQ(Stored(walk), want);
  EXPECT_EQ(want.front(), "b");
  SetPassword(other, "b", "new");
  want[1] = "new";
  EXPECT_EQ(Stored(walk), want) << "somebody else's post";
  walk->passwd.Set("own");
  EXPECT_EQ(Stored(walk), want) << "not posted";
  walk->Post("");
  want[1] = "own";
  EXPECT_EQ(Stored(walk), want);
  Remove(other, "b");
  EXPECT_TRUE(Stored(walk).empty());
  walk->Next();
  EXPECT_TRUE(walk->Eof());
  EXPECT_TRUE(Stored(walk).empty());
}

// The other cursor changes what the walk would else go through without asking.
TEST_F(ConfViewTest, AWalkInFullSwingSeesWhatChangesAhead) {
  std::vector<std::string> names;
  for (int line = 10; line < 40; ++line) names.push_back("u" + std::to_string(line));
  WriteLines(names);
  const auto walk = Open();
  const auto other = Open();
  std::string seen;
  // Without saves the walk comes to the changes before it looks at the file again.
  const DeferSaves scope;
  for (walk->First(); !walk->Eof(); walk->Next()) {
    seen += walk->name.Str() + "=" + walk->passwd.Str() + " ";
    if (walk->name.Str() == "u15") {
      Remove(other, "u16");
      SetPassword(other, "u18", "new");
      AddUser(other, "u99");
    }
  }
  EXPECT_NE(seen.find("u15={X}h u17={X}h u18=new u19={X}h "), std::string::npos) << seen;
  EXPECT_NE(seen.find("u39={X}h u99="), std::string::npos) << seen;
}

TEST_F(ConfViewTest, AWalkSeesAnEditByHandAfterMilliseconds) {
  WriteLines({"a", "b", "c"});
  const auto walk = Open();
  walk->First();
  Write(Line("a") + "\n" + Line("b", "edited") + "\n");
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  walk->Next();
  EXPECT_EQ(walk->name.Str(), "b");
  EXPECT_EQ(walk->passwd.Str(), "edited");
}

TEST_F(ConfViewTest, APostOnAWalkKeepsTheWalksPlace) {
  WriteLines({"a", "b", "c"});
  const auto users = Open();
  int lines = 0;
  for (users->First(); !users->Eof(); users->Next()) {
    users->passwd.Set("new" + std::to_string(++lines));
    users->Post("");
  }
  EXPECT_EQ(lines, 3);
  EXPECT_EQ(Content(),
            Line("a", "new1") + "\n" + Line("b", "new2") + "\n" + Line("c", "new3") + "\n");
}

TEST_F(ConfViewTest, AFailedRequestTakesItsLinesBack) {
  const std::string before = Line("a", "old") + "\n" + Line("b") + "\n";
  Write(before);
  const auto users = Open();
  {
    Request request("test");
    AddUser(users, "n");
    SetPassword(users, "n", "x");
    SetPassword(users, "a", "new");
    Remove(users, "b");
    EXPECT_EQ(Names(users), (std::vector<std::string>{"a", "n"}));
  }
  EXPECT_EQ(Content(), before);
  EXPECT_EQ(Names(users), (std::vector<std::string>{"a", "b"}));
}

TEST_F(ConfViewTest, ACommittedRequestKeepsItsLines) {
  Write(Line("a", "old") + "\n");
  const auto users = Open();
  {
    Request request("test");
    SetPassword(users, "a", "new");
    request.Commit();
  }
  EXPECT_EQ(Content(), Line("a", "new") + "\n");
}

TEST_F(ConfViewTest, ARequestDoesNotTakeBackWhatSomebodyHasChangedSince) {
  support::LogCapture log;
  log.ExpectError("not undone: changed since");
  Write(Line("a", "old") + "\n" + Line("b", "old") + "\n");
  const auto users = Open();
  {
    Request request("test");
    SetPassword(users, "a", "new");
    SetPassword(users, "b", "new");
    Write(Line("a", "by hand") + "\n" + Line("b", "new") + "\n");
  }
  EXPECT_EQ(Content(), Line("a", "by hand") + "\n" + Line("b", "old") + "\n");
}

TEST_F(ConfViewTest, WhatWasRefusedNeedsNoTakingBack) {
  Write(Line("a", "old") + "\n");
  const auto users = Open();
  Request request("test");
  EXPECT_EQ(ErrorOf([&] { AddUser(users, "a"); }), "exists: name: a");
  request.Rollback();
  EXPECT_TRUE(request.Notes().empty());
  EXPECT_EQ(Content(), Line("a", "old") + "\n");
}

// Walks beside writers of both kinds: every walk must see each line that stays exactly once, in
// order.
TEST_F(ConfViewTest, WalksStayWholeBesideThreadsAndEditors) {
  std::vector<std::string> stay;
  for (int line = 10; line < 40; ++line) stay.push_back("s" + std::to_string(line));
  WriteLines(stay);
  std::atomic<bool> stop = false;
  std::thread poster([&] {
    const auto users = Open();
    for (int round = 0; round < 60; ++round) {
      const std::string name = "t" + std::to_string(round % 7);
      if (users->Find(name)) {
        users->_Delete(true);
      } else {
        AddUser(users, name);
      }
    }
    stop = true;
  });
  std::thread editor([&] {
    for (int round = 0; !stop; ++round) {
      std::string content = round % 2 ? "# edited\n" : "";
      for (const std::string& name : stay) content += Line(name, std::to_string(round)) + "\n";
      folder_.Write("mine", content);
      ASSERT_EQ(::rename((folder_ / "mine").c_str(), path_.c_str()), 0);
      std::this_thread::sleep_for(std::chrono::milliseconds(3));
    }
  });
  const auto walk = Open();
  int walks = 0;
  for (; !stop || walks < 3; ++walks) {
    std::vector<std::string> seen;
    for (walk->First(); !walk->Eof(); walk->Next()) {
      const std::string name = walk->name.Str();
      if (name.starts_with('s')) seen.push_back(name);
    }
    ASSERT_EQ(seen, stay) << "walk " << walks;
  }
  poster.join();
  editor.join();
}

/// The file as a list of (name, password) and lines that are no records, in the simplest way.
class Model {
 public:
  void Add(const std::string& name) { lines_.emplace_back(name, ""); }
  void Comment(const std::string& text) { lines_.emplace_back("", text); }
  void Set(const std::string& name, const std::string& hash) { Find(name)->second = hash; }
  void Remove(const std::string& name) { lines_.erase(Find(name)); }
  bool Has(const std::string& name) { return Find(name) != lines_.end(); }
  std::string Print() const {
    std::string text;
    for (const auto& [name, rest] : lines_) {
      text += (name.empty() ? "# " + rest : Line(name, rest)) + "\n";
    }
    return text;
  }

 private:
  using Lines = std::vector<std::pair<std::string, std::string>>;
  Lines::iterator Find(const std::string& name) {
    return std::find_if(lines_.begin(), lines_.end(),
                        [&](const auto& line) { return line.first == name; });
  }
  Lines lines_;
};

TEST_F(ConfViewTest, AgreesWithASimpleModelUnderRandomPostsAndEdits) {
  std::mt19937 random(11);
  Model model;
  Write("");
  const std::vector<Cursor<Users>> cursors = {Open(), Open(), Open()};
  for (int step = 0; step < 400; ++step) {
    const auto& users = cursors[random() % cursors.size()];
    const std::string name = "u" + std::to_string(random() % 8);
    const std::string hash = "h" + std::to_string(step);
    const bool there = model.Has(name);
    switch (random() % 5) {
      case 0:
        EXPECT_EQ(ErrorOf([&] { AddUser(users, name); }), there ? "exists: name: " + name : "");
        if (!there) model.Add(name);
        break;
      case 1:
        EXPECT_EQ(ErrorOf([&] { SetPassword(users, name, hash); }),
                  there ? "" : "missed: name: " + name);
        if (there) model.Set(name, hash);
        break;
      case 2:
        EXPECT_EQ(ErrorOf([&] { Remove(users, name); }), there ? "" : "missed: name: " + name);
        if (there) model.Remove(name);
        break;
      case 3:
        // By hand, in place or by renaming.
        model.Comment(hash);
        if (there) model.Set(name, "by hand");
        folder_.Write("mine", model.Print());
        if (random() % 2) {
          Write(model.Print());
        } else {
          ASSERT_EQ(::rename((folder_ / "mine").c_str(), path_.c_str()), 0);
        }
        break;
      default:
        EXPECT_EQ(users->Find(name), there);
    }
    ASSERT_EQ(Content(), model.Print()) << "step " << step;
  }
}

}  // namespace
