// Runs over many rows of a table: what is read ahead and what is written later must not be seen.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <thread>
#include <utility>

#include "framework/rehearsal.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_dir.h"
#include "tests/unit/framework/row_runs_fixture.h"

namespace {

using namespace row_runs;
using testing::HasSubstr;

std::string ContentSeenByOthers() {
  std::string content;
  std::jthread([&] { content = Content(); }).join();
  return content;
}

std::string CountOfTag(int tag) {
  return mgr_db::ThreadConnection()
      ->Query("SELECT COUNT(*) FROM boxes WHERE tag = :v1", {std::to_string(tag)}, 1)
      .front()
      .front();
}

class RowRunsTest : public testing::Test {
 protected:
  static constexpr int kBoxes = 300;

  RowRunsTest() { MakeBoxes(dir_ / "panel.db", kBoxes); }
  ~RowRunsTest() override { mgr_db::CloseDatabase(); }

  // A run inside of a transaction that marks boxes 1 to `last`.
  void Mark(int last, int tag) {
    for (int number = 1; number <= last; ++number) {
      ASSERT_TRUE(Find(box_, number)) << number;
      box_.tag = tag;
      box_.Post();
    }
  }

  support::LogCapture log_;  // a rollback that fails is logged
  support::TempDir dir_;
  MarkedBox box_;
};

// Statements that are run by connections opened while it lives.
class StatementCount {
 public:
  StatementCount() {
    count_ = 0;
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(&Watch));
  }
  ~StatementCount() { sqlite3_cancel_auto_extension(reinterpret_cast<void (*)()>(&Watch)); }
  StatementCount(const StatementCount&) = delete;
  StatementCount& operator=(const StatementCount&) = delete;

  int Taken() { return std::exchange(count_, 0); }

 private:
  static int Watch(sqlite3* database, const char**, const void*) {
    return sqlite3_trace_v2(database, SQLITE_TRACE_STMT, &Saw, nullptr);
  }
  static int Saw(unsigned, void*, void*, void*) {
    ++count_;
    return 0;
  }
  static int count_;
};

int StatementCount::count_ = 0;

TEST_F(RowRunsTest, ARunInsideATransactionTakesFewStatements) {
  mgr_db::CloseDatabase();
  StatementCount statements;
  mgr_db::OpenDatabase(dir_ / "panel.db");
  {
    Request request("run");
    mgr_db::ThreadConnection()->LockForWriting();
    statements.Taken();
    Mark(kBoxes, 7);
    EXPECT_LT(statements.Taken(), kBoxes / 5);
    request.Commit();
  }
  EXPECT_EQ(std::to_string(kBoxes), CountOfTag(7));
  statements.Taken();
  Mark(10, 8);
  EXPECT_EQ(20, statements.Taken()) << "outside of a transaction each one is a statement";
}

TEST_F(RowRunsTest, WhatOthersChangeBetweenTransactionsIsSeen) {
  {
    Request request("run");
    mgr_db::ThreadConnection()->LockForWriting();
    Mark(20, 7);
    request.Commit();
  }
  ASSERT_TRUE(Find(box_, 21));
  std::jthread([] {
    mgr_db::ThreadConnection()->Change("UPDATE boxes SET size = 5 WHERE id > 10");
  }).join();
  ASSERT_TRUE(Find(box_, 21));
  EXPECT_EQ(5, box_.size);
  Request request("run");
  mgr_db::ThreadConnection()->LockForWriting();
  ASSERT_TRUE(Find(box_, 22));
  EXPECT_EQ(5, box_.size);
}

TEST_F(RowRunsTest, WhateverLooksSeesTheMarks) {
  struct Case {
    const char* name;
    std::function<int()> tag;  // of box 100
  };
  const Case cases[] = {
      {"the same table", [&] { return Find(box_, 100) ? int{box_.tag} : -1; }},
      {"another object",
       [] {
         MarkedBox other;
         return Find(other, 100) ? int{other.tag} : -1;
       }},
      {"a find by its number",
       [] {
         MarkedBox other;
         other.Assert(100);
         return int{other.tag};
       }},
      {"a selection",
       [] {
         MarkedBox other;
         other.DbSelect({{"name", NameOf(100)}});
         return int{other.tag};
       }},
      {"SQL",
       [] {
         return std::stoi(mgr_db::ThreadConnection()
                              ->Query("SELECT tag FROM boxes WHERE id = 100", {}, 1)
                              .front()
                              .front());
       }},
      {"a condition",
       [] {
         MarkedBox().DbDelete("id = 101 AND (SELECT tag FROM boxes WHERE id = 100) != 0");
         MarkedBox box;
         return Find(box, 101) ? -1 : Find(box, 100) ? int{box.tag} : -2;
       }},
  };
  int tag = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Request request("run");
    mgr_db::ThreadConnection()->LockForWriting();
    Mark(100, ++tag);
    EXPECT_EQ(tag, c.tag());
  }
}

TEST_F(RowRunsTest, ClassesWithOtherColumnsOfTheTableKeepApart) {
  class Label : public mgr_db::CustomTable {
   public:
    Label() : CustomTable("boxes"), id(this, "id"), tag(this, "tag"), name(this, "name") {
      SetKey({&name});
      SetMark(tag);
    }
    mgr_db::IntField id;
    mgr_db::IntField tag;
    mgr_db::StringField name;
  };
  Request request("run");
  mgr_db::ThreadConnection()->LockForWriting();
  Label label;
  for (int number = 1; number <= 100; ++number) {
    ASSERT_TRUE(Find(box_, number));
    box_.tag = number;
    box_.Post();
    if (number % 20 > 2) continue;
    ASSERT_TRUE(label.DbFind({{"name", NameOf(number)}}));
    EXPECT_EQ(number, label.tag);
    label.tag = -number;
    label.Post();
  }
  for (const int number : {20, 21, 22, 23}) {
    ASSERT_TRUE(Find(box_, number));
    EXPECT_EQ(number == 23 ? number : -number, box_.tag);
  }
}

TEST_F(RowRunsTest, OnlyBoxesThatWerePostedAreMarked) {
  Request request("run");
  mgr_db::ThreadConnection()->LockForWriting();
  int posted = 0;
  for (int number = 1; number <= kBoxes; ++number) {
    ASSERT_TRUE(Find(box_, number));
    if (number % 7 == 3) continue;
    box_.tag = 9;
    box_.Post();
    ++posted;
  }
  EXPECT_EQ(std::to_string(posted), CountOfTag(9));
}

TEST_F(RowRunsTest, AnotherChangeKeepsItsPlaceAmongTheMarks) {
  Request request("run");
  mgr_db::ThreadConnection()->LockForWriting();
  for (int number = 1; number <= kBoxes; ++number) {
    ASSERT_TRUE(Find(box_, number));
    box_.tag = 9;
    box_.size = number % 50 == 0 ? number : 0;
    box_.Post();
  }
  EXPECT_EQ(std::to_string(kBoxes), CountOfTag(9));
  ASSERT_TRUE(Find(box_, 250));
  EXPECT_EQ(250, box_.size);
  ASSERT_TRUE(Find(box_, 251));
  EXPECT_EQ(0, box_.size);
}

TEST_F(RowRunsTest, ARefusedChangeIsToldAtItsPost) {
  Request request("run");
  mgr_db::ThreadConnection()->LockForWriting();
  Mark(50, 9);
  ASSERT_TRUE(Find(box_, 51));
  box_.size = -1;
  box_.tag = 9;
  EXPECT_EQ("db", TypeOf([&] { box_.Post(); }));
  ASSERT_TRUE(Find(box_, 52));
  box_.name = NameOf(53);
  EXPECT_EQ("exists", TypeOf([&] { box_.Post(); }));
  EXPECT_EQ("50", CountOfTag(9));
}

TEST_F(RowRunsTest, MarksBecomeVisibleWithTheCommitOnly) {
  const std::string before = Content();
  Request request("run");
  mgr_db::ThreadConnection()->LockForWriting();
  Mark(kBoxes, 7);
  EXPECT_EQ(before, ContentSeenByOthers());
  request.Commit();
  EXPECT_EQ(std::to_string(kBoxes), CountOfTag(7));
}

TEST_F(RowRunsTest, ARollbackTakesTheMarksAlong) {
  const std::string before = Content();
  {
    Request request("run");
    mgr_db::ThreadConnection()->LockForWriting();
    Mark(kBoxes, 7);
  }
  EXPECT_EQ(before, Content());
  ASSERT_TRUE(Find(box_, 200));
  EXPECT_EQ(0, box_.tag);
}

TEST_F(RowRunsTest, InADryRunEachRequestKeepsOrDropsItsMarks) {
  const std::string before = Content();
  {
    const Rehearsal rehearsal;
    {
      Request request("kept");
      mgr_db::ThreadConnection()->LockForWriting();
      Mark(60, 7);
      request.Commit();
    }
    {
      Request request("dropped");
      mgr_db::ThreadConnection()->LockForWriting();
      Mark(200, 8);
    }
    ASSERT_TRUE(Find(box_, 60));
    EXPECT_EQ(7, box_.tag);
    EXPECT_EQ("60", CountOfTag(7));
    EXPECT_EQ("0", CountOfTag(8));
    Mark(100, 9);
    EXPECT_EQ(before, ContentSeenByOthers());
  }
  EXPECT_EQ(before, Content());
}

TEST_F(RowRunsTest, AGroupWritesItsMarksWhenItEnds) {
  {
    mgr_db::GroupedChanges group;
    Mark(kBoxes, 7);
  }
  EXPECT_EQ(std::to_string(kBoxes), CountOfTag(7));
  mgr_db::GroupedChanges group;
  Mark(kBoxes, 8);
  group.Commit();
  std::string seen;
  std::jthread([&] { seen = CountOfTag(8); }).join();
  EXPECT_EQ(std::to_string(kBoxes), seen);
}

// Others get their turn in the middle of a run, though nothing but memory is asked then.
TEST_F(RowRunsTest, AGroupOfMarksIsCommittedAfterAWhile) {
  mgr_db::GroupedChanges group;
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  const auto seen = [] { return ContentSeenByOthers().find("box1 0 7") != std::string::npos; };
  Mark(100, 7);
  while (!seen() && std::chrono::steady_clock::now() < limit) {
    Find(box_, 99);
    box_.tag = 7;
    box_.Post();
  }
  EXPECT_TRUE(seen());
}

TEST_F(RowRunsTest, ARowThatIsGoneIsMissedByItsPost) {
  mgr_db::GroupedChanges group;
  MarkedBox stale;
  ASSERT_TRUE(Find(stale, 5));
  std::jthread([] { MarkedBox().DbDelete("id = 5"); }).join();
  Mark(4, 7);
  stale.tag = 7;
  EXPECT_EQ("missed", TypeOf([&] { stale.Post(); }));
}

// A disk that is full is met when the marks are written, not when they are posted.
class FullRowRunsTest : public RowRunsTest {
 protected:
  void Fill() {
    AddBoxes(kBoxes + 1, 3000);  // so that no page near the first ones has room
    const auto connection = mgr_db::ThreadConnection();
    const std::string pages = connection->Query("PRAGMA page_count", {}, 1).front().front();
    connection->Query("PRAGMA max_page_count = " + pages, {}, 1);
  }
};

TEST_F(FullRowRunsTest, MarksThatCantBeWrittenFailTheCommit) {
  Fill();
  const std::string before = Content();
  struct Case {
    const char* name;
    std::function<void()> between;  // what the caller does before, and does not mind
  };
  const Case cases[] = {
      {"at once", [] {}},
      {"after a look that failed", [] { TypeOf([] { Content(); }); }},
      {"after finds that failed",
       [] {
         MarkedBox box;
         for (int i = 0; i < 3; ++i) TypeOf([&] { Find(box, 1); });
       }},
      {"after a change that failed",
       [] {
         TypeOf([] { mgr_db::ThreadConnection()->Change("DELETE FROM boxes WHERE id = 1"); });
       }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::string text;
    {
      Request request("run");
      mgr_db::ThreadConnection()->LockForWriting();
      // Large numbers need more room than the file has.
      TypeOf([&] { Mark(kBoxes, 2000000000); });
      c.between();
      try {
        request.Commit();
      } catch (const mgr_err::Error& error) {
        text = error.what();
      }
    }
    EXPECT_THAT(text, HasSubstr("db: " + (dir_ / "panel.db")));
    EXPECT_EQ(before, Content());
  }
}

// What else a group has changed is not lost with them.
TEST_F(FullRowRunsTest, AGroupKeepsItsOtherChangesWithoutItsLostMarks) {
  Fill();
  mgr_db::GroupedChanges group;
  mgr_db::ThreadConnection()->Change("UPDATE boxes SET size = 1 WHERE id = 1");
  EXPECT_EQ("db", TypeOf([&] { Mark(kBoxes, 2000000000); }));
  EXPECT_EQ("db", TypeOf([&] { group.Commit(); }));
  std::string seen;
  std::jthread([&] {
    seen = mgr_db::ThreadConnection()->Query("SELECT size FROM boxes WHERE id = 1", {}, 1)[0][0];
  }).join();
  EXPECT_EQ("1", seen);
  EXPECT_EQ("0", CountOfTag(2000000000));
}

TEST_F(FullRowRunsTest, AGroupTellsOfItsLostMarks) {
  Fill();
  const std::string before = Content();
  mgr_db::GroupedChanges group;
  EXPECT_EQ("db", TypeOf([&] {
              Mark(kBoxes, 2000000000);
              group.Commit();
            }));
  TypeOf([&] { group.Commit(); });
  EXPECT_EQ(before, Content());
}

// SQLite ends the transaction by itself when a single row can't be written.
TEST_F(FullRowRunsTest, MarksOfALostTransactionAreNotWrittenBehindIt) {
  class Note : public mgr_db::CustomTable {
   public:
    Note() : CustomTable("notes"), id(this, "id"), text(this, "text") {}
    mgr_db::IntField id;
    mgr_db::StringField text;
  };
  Note note;
  mgr_db::ThreadConnection()->Change("CREATE TABLE notes (id INTEGER PRIMARY KEY, text TEXT)");
  note.Post();
  Fill();
  Request request("run");
  mgr_db::ThreadConnection()->LockForWriting();
  Mark(50, 1);
  ASSERT_TRUE(Find(box_, 51));
  note.text = std::string(100000, 'x');
  EXPECT_EQ("db", TypeOf([&] { note.Post(); }));
  box_.tag = 1;
  box_.Post();
  EXPECT_EQ("db", TypeOf([&] { request.Commit(); }));
  EXPECT_EQ("0", CountOfTag(1));
}

}  // namespace
