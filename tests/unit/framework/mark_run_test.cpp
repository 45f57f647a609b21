#include "framework/mark_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using mgr_db::KnownRow;
using testing::ElementsAre;

KnownRow Row(long long id, long long after) {
  KnownRow row;
  row.id = id;
  row.after = after;
  return row;
}

class MarkRunTest : public testing::Test {
 protected:
  MarkRunTest() { run_.Add("boxes", Row(5, 5), {"tag", "7"}); }

  mgr_db::MarkRun run_;
};

TEST_F(MarkRunTest, ARunBeginsWithAnyRow) {
  EXPECT_TRUE(mgr_db::MarkRun().IsEmpty());
  EXPECT_FALSE(run_.IsEmpty());
  EXPECT_EQ("UPDATE boxes SET tag = :v1 WHERE id BETWEEN :v2 AND :v3", run_.Sql());
  EXPECT_THAT(run_.Values(), ElementsAre("7", "5", "5"));
}

TEST_F(MarkRunTest, OnlyWhatHasNoRowInBetweenMakesItLonger) {
  struct Case {
    const char* name;
    const char* table;
    KnownRow row;
    const char* column;
    const char* value;
    bool is_taken;
  };
  const Case cases[] = {
      {"the next row", "boxes", Row(6, 5), "tag", "7", true},
      {"the next row behind a gap", "boxes", Row(60, 5), "tag", "7", true},
      {"a row whose neighbour is not known", "boxes", Row(6, 6), "tag", "7", false},
      {"a row behind another", "boxes", Row(7, 6), "tag", "7", false},
      {"the same row", "boxes", Row(5, 4), "tag", "7", false},
      {"a row before", "boxes", Row(4, 3), "tag", "7", false},
      {"another value", "boxes", Row(6, 5), "tag", "8", false},
      {"another column", "boxes", Row(6, 5), "size", "7", false},
      {"another table", "things", Row(6, 5), "tag", "7", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    mgr_db::MarkRun run = run_;
    EXPECT_EQ(c.is_taken, run.Add(c.table, c.row, {c.column, c.value}));
    const std::string last = std::to_string(c.is_taken ? c.row.id : 5);
    EXPECT_THAT(run.Values(), ElementsAre("7", "5", last));
    EXPECT_TRUE(run.IsOf("boxes"));
  }
}

TEST_F(MarkRunTest, AClearedRunIsOfNoTableAndBeginsAnew) {
  EXPECT_TRUE(run_.IsOf("boxes"));
  EXPECT_FALSE(run_.IsOf("things"));
  run_.Clear();
  EXPECT_TRUE(run_.IsEmpty());
  EXPECT_FALSE(run_.IsOf("boxes"));
  EXPECT_FALSE(run_.IsOf(""));
  EXPECT_TRUE(run_.Add("things", Row(1, 0), {"mark", "x"}));
  EXPECT_THAT(run_.Values(), ElementsAre("x", "1", "1"));
  EXPECT_TRUE(run_.IsOf("things"));
}

}  // namespace
