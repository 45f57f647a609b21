#include "framework/known_rows.h"

#include <gtest/gtest.h>

#include "mgr_db.h"

namespace {

using mgr_db::KnownRow;
using mgr_db::KnownRows;

class Box : public mgr_db::CustomTable {
 public:
  Box()
      : CustomTable("boxes"),
        id(this, "id"),
        name(this, "name"),
        domain(this, "domain"),
        tag(this, "tag") {
    SetKey({&domain, &name});
    SetMark(tag);
  }

  mgr_db::IntField id;
  mgr_db::StringField name;
  mgr_db::IntField domain;
  mgr_db::IntField tag;
};

class KnownRowsTest : public testing::Test {
 protected:
  static std::vector<std::string> Columns(long long id) {
    return {std::to_string(id), "n" + std::to_string(id), "3", "0"};
  }
  static KnownRows::Match Key(long long id) {
    return {{"domain", "3"}, {"name", "n" + std::to_string(id)}};
  }
  const KnownRow* Find(long long id) { return rows_.Find(Key(id)); }

  // Rows behind the current one, at this distance from each other.
  void EnterAhead(long long after, std::size_t count, long long step = 1) {
    rows_.BeginAhead();
    for (std::size_t i = 1; i <= count; ++i) {
      rows_.Next() = Columns(after + static_cast<long long>(i) * step);
      rows_.EnterNext();
    }
  }
  // Finds in the database until reading ahead pays; gives the last number.
  long long Earn() {
    long long id = 0;
    while (rows_.Wanted() == 0) {
      rows_.Add(Columns(++id));
    }
    return id;
  }

  Box box_;
  KnownRows rows_{box_};
};

TEST_F(KnownRowsTest, OnlyTheWholeKeyInItsOrderIsTheKey) {
  struct Case {
    const char* name;
    KnownRows::Match match;
    bool is_key;
  };
  const Case cases[] = {
      {"key", {{"domain", "1"}, {"name", "a"}}, true},
      {"another order", {{"name", "a"}, {"domain", "1"}}, false},
      {"a part", {{"domain", "1"}}, false},
      {"more", {{"domain", "1"}, {"name", "a"}, {"tag", "1"}}, false},
      {"another column", {{"domain", "1"}, {"tag", "a"}}, false},
      {"nothing", {}, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.is_key, KnownRows::IsKey(box_, c.match));
  }
}

TEST_F(KnownRowsTest, ATableWithoutAKeyHasNone) {
  class Keyless : public mgr_db::CustomTable {
   public:
    Keyless() : CustomTable("keyless"), id(this, "id") {}
    mgr_db::IntField id;
  };
  EXPECT_FALSE(KnownRows::IsKey(Keyless(), {}));
  EXPECT_FALSE(KnownRows::IsKey(Keyless(), {{"id", "1"}}));
}

TEST_F(KnownRowsTest, RowsAreOfOneClass) {
  class Other : public Box {};
  EXPECT_TRUE(rows_.Fits(Box()));
  EXPECT_FALSE(rows_.Fits(Other()));
}

TEST_F(KnownRowsTest, ARowIsFoundByItsKeyOnly) {
  rows_.Add(Columns(7));
  const KnownRow* row = Find(7);
  ASSERT_NE(nullptr, row);
  EXPECT_EQ(Columns(7), row->columns);
  EXPECT_EQ(7, row->id);
  EXPECT_EQ(7, row->after) << "its neighbour is not known";
  EXPECT_EQ(nullptr, Find(8));
  EXPECT_EQ(nullptr, rows_.Find({{"domain", "4"}, {"name", "n7"}}));
}

// The key's values are put together into one text with a mark in between.
TEST_F(KnownRowsTest, ValuesThatHoldTheMarkAreToldApart) {
  using std::string_literals::operator""s;
  rows_.Add({"1", "c", "a\0b"s, "0"});
  EXPECT_EQ(nullptr, rows_.Find({{"domain", "a"}, {"name", "b\0c"s}}));
  EXPECT_NE(nullptr, rows_.Find({{"domain", "a\0b"s}, {"name", "c"}}));
}

TEST_F(KnownRowsTest, TheLastOneOfAKeyCounts) {
  rows_.Add({"1", "a", "3", "0"});
  rows_.Add({"1", "a", "3", "5"});
  EXPECT_EQ("5", rows_.Find({{"domain", "3"}, {"name", "a"}})->columns.back());
}

// A walk's next row is looked for where it was read to; what is newer lies elsewhere.
TEST_F(KnownRowsTest, NoOlderOneIsTakenForTheNext) {
  const long long id = Earn();
  EnterAhead(id, 3);
  ASSERT_NE(nullptr, Find(id + 1));
  // The one behind it, read anew.
  rows_.Add({std::to_string(id + 2), "n" + std::to_string(id + 2), "3", "5"});
  ASSERT_NE(nullptr, Find(id + 1));
  ASSERT_NE(nullptr, Find(id + 2));
  EXPECT_EQ("5", Find(id + 2)->columns.back());
  EXPECT_NE(nullptr, Find(id + 3));
}

TEST_F(KnownRowsTest, AForgottenOneIsNotFoundInAWalk) {
  const long long id = Earn();
  EnterAhead(id, 3);
  ASSERT_NE(nullptr, Find(id + 1));
  rows_.ForgetCurrent();
  EXPECT_EQ(nullptr, Find(id + 1));
  ASSERT_NE(nullptr, Find(id + 2));
  rows_.ForgetCurrent();
  EXPECT_EQ(nullptr, Find(id + 2));
  EXPECT_NE(nullptr, Find(id + 3));
}

TEST_F(KnownRowsTest, ReadingAheadIsEarnedByFindsThatGoUp) {
  EXPECT_EQ(8, Earn());
  EXPECT_EQ(KnownRows::kLeastAhead, rows_.Wanted());
  rows_.Add(Columns(3));
  EXPECT_EQ(0u, rows_.Wanted()) << "a find went down";
}

TEST_F(KnownRowsTest, ReadingAheadGrowsWithWhatItServes) {
  long long id = Earn();
  std::size_t last = 0;
  for (int round = 0; round < 12; ++round) {
    const std::size_t wanted = rows_.Wanted();
    EXPECT_GE(wanted, std::min(2 * last, KnownRows::kMostAhead));
    EnterAhead(id, wanted);
    EXPECT_EQ(0u, rows_.Wanted());
    for (std::size_t i = 0; i < wanted; ++i) {
      ASSERT_NE(nullptr, Find(++id));
    }
    last = wanted;
  }
  EXPECT_EQ(KnownRows::kMostAhead, last);
}

TEST_F(KnownRowsTest, ReadingAheadThatServesNothingIsEarnedAgain) {
  EnterAhead(Earn(), KnownRows::kLeastAhead);
  for (long long id = 100; id < 107; ++id) {
    rows_.Add(Columns(id));
    EXPECT_EQ(0u, rows_.Wanted());
  }
  rows_.Add(Columns(107));
  EXPECT_EQ(KnownRows::kLeastAhead, rows_.Wanted());
}

TEST_F(KnownRowsTest, RowsReadAheadKnowTheRowBefore) {
  EnterAhead(Earn(), 3, 10);
  EXPECT_EQ(8, Find(18)->after);
  EXPECT_EQ(18, Find(28)->after);
  EXPECT_EQ(28, Find(38)->after);
}

TEST_F(KnownRowsTest, ARowThatWasNotEnteredIsNotKnown) {
  EnterAhead(Earn(), 1);
  rows_.Next() = Columns(10);
  EXPECT_EQ(nullptr, Find(10));
  EXPECT_NE(nullptr, Find(9));
}

TEST_F(KnownRowsTest, TheRowFoundLastIsTheCurrentOne) {
  EXPECT_EQ(nullptr, rows_.Current(0));
  EnterAhead(Earn(), 3);
  EXPECT_NE(nullptr, rows_.Current(8)) << "reading ahead does not change it";
  ASSERT_NE(nullptr, Find(10));
  EXPECT_EQ(10, rows_.Current(10)->id);
  EXPECT_EQ(nullptr, rows_.Current(9));
  Find(99);
  EXPECT_NE(nullptr, rows_.Current(10)) << "nothing was found";
}

TEST_F(KnownRowsTest, AForgottenRowIsNotKnownAndOthersAre) {
  EnterAhead(Earn(), 3);
  ASSERT_NE(nullptr, Find(10));
  rows_.ForgetCurrent();
  EXPECT_EQ(nullptr, rows_.Current(10));
  EXPECT_EQ(nullptr, Find(10));
  EXPECT_NE(nullptr, Find(11));
  rows_.Add(Columns(10));
  EXPECT_NE(nullptr, Find(10));
}

TEST_F(KnownRowsTest, MakingRoomKeepsTheCurrentRow) {
  long long id = Earn();
  for (int round = 0; round < 12; ++round) {
    const std::size_t wanted = rows_.Wanted();
    EnterAhead(id, wanted);
    ASSERT_NE(nullptr, rows_.Current(id)) << id;
    ASSERT_EQ(Columns(id), Find(id)->columns);
    for (std::size_t i = 0; i < wanted; ++i) {
      ASSERT_NE(nullptr, Find(++id));
    }
  }
  EXPECT_EQ(nullptr, Find(1)) << "forgotten long ago";
}

TEST_F(KnownRowsTest, SingleRowsAreNotKeptWithoutEnd) {
  const long long most = KnownRows::kMost;
  for (long long id = most + 10; id > 0; --id) {
    rows_.Add(Columns(id));
  }
  EXPECT_EQ(nullptr, Find(most + 10));
  EXPECT_NE(nullptr, Find(1));
}

}  // namespace
