#include "framework/table_sql.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mgr_err.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Box : public mgr_db::CustomTable {
 public:
  Box() : CustomTable("boxes"), id(this, "id"), name(this, "name"), size(this, "size") {}

  mgr_db::IntField id;
  mgr_db::StringField name;
  mgr_db::IntField size;
};

const Box kBox;

TEST(TableSql, SelectTakesAllColumnsInTheirOrder) {
  EXPECT_EQ("SELECT id, name, size FROM boxes ORDER BY size",
            mgr_db::table_sql::Select(kBox, {}, "size"));
}

TEST(TableSql, SelectMatchesEveryPairByAMarkedValue) {
  EXPECT_EQ("SELECT id, name, size FROM boxes WHERE size = :v1 AND name = :v2 ORDER BY id",
            mgr_db::table_sql::Select(kBox, {{"size", "1"}, {"name", "a"}}, "id"));
}

TEST(TableSql, RowsBehindANumberAreLimited) {
  EXPECT_EQ("SELECT id, name, size FROM boxes WHERE id > -7 ORDER BY id LIMIT 16",
            mgr_db::table_sql::SelectAfter(kBox, -7, 16));
}

TEST(TableSql, UpdateTakesTheNumberBehindTheValues) {
  EXPECT_EQ("UPDATE boxes SET size = :v1 WHERE id = :v2",
            mgr_db::table_sql::Update(kBox, {{"size", "1"}}));
  EXPECT_EQ("UPDATE boxes SET size = :v1, name = :v2 WHERE id = :v3",
            mgr_db::table_sql::Update(kBox, {{"size", "1"}, {"name", "a"}}));
}

TEST(TableSql, ValuesKeepTheirOrder) {
  EXPECT_THAT(mgr_db::table_sql::ValuesOf({{"size", "1"}, {"name", "'; --"}}),
              ElementsAre("1", "'; --"));
  EXPECT_THAT(mgr_db::table_sql::ValuesOf({}), IsEmpty());
}

TEST(TableSql, AColumnThatIsNoneNeverBecomesSql) {
  struct Case {
    const char* name;
    std::string (*make)();
  };
  const Case cases[] = {
      {"match",
       [] {
         return mgr_db::table_sql::Select(kBox, {{"1=1 OR name", "x"}}, "id");
       }},
      {"order", [] { return mgr_db::table_sql::Select(kBox, {}, "id; DROP TABLE boxes"); }},
      {"change",
       [] {
         return mgr_db::table_sql::Update(kBox, {{"tag", "1"}});
       }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    try {
      ADD_FAILURE() << c.make();
    } catch (const mgr_err::Error& error) {
      EXPECT_EQ("internal", error.type());
      EXPECT_EQ("boxes", error.object());
    }
  }
}

}  // namespace
