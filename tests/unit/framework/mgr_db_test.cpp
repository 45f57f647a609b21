#include "mgr_db.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <thread>

#include "framework/database.h"
#include "framework/request.h"
#include "framework/seal.h"
#include "mgr_err.h"
#include "tests/support/temp_dir.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class Thing : public mgr_db::CustomTable {
 public:
  Thing()
      : CustomTable("things"),
        id(this, "id"),
        name(this, "name"),
        size(this, "size"),
        active(this, "active"),
        secret(this, "secret") {}

  std::string Schema() const override {
    return "CREATE TABLE IF NOT EXISTS things (id INTEGER PRIMARY KEY AUTOINCREMENT,"
           "name TEXT NOT NULL UNIQUE, size INTEGER NOT NULL, active TEXT NOT NULL,"
           "secret TEXT NOT NULL);"
           "CREATE INDEX IF NOT EXISTS things_by_size ON things (size)";
  }

  mgr_db::IntField id;
  mgr_db::StringField name;
  mgr_db::IntField size;
  mgr_db::BoolField active;
  mgr_db::SealedField secret;
};

// A table with the schema that the base class makes of the fields.
class Plain : public mgr_db::CustomTable {
 public:
  Plain() : CustomTable("plain"), id(this, "id"), text(this, "text"), on(this, "on_off") {}

  mgr_db::IntField id;
  mgr_db::StringField text;
  mgr_db::BoolField on;
};

template <class T>
mgr_db::CustomTable* Make() {
  return new T;
}

class TableTest : public testing::Test {
 protected:
  TableTest() {
    mgr_db::OpenDatabase(dir_ / "panel.db");
    mgr_seal::SetKeyFile(dir_ / "seal.key");
    cache_.Add(typeid(Thing).name(), &Make<Thing>);
    cache_.Add(typeid(Plain).name(), &Make<Plain>);
    mgr_db::CreateTables(cache_, {typeid(Thing).name(), typeid(Plain).name()});
  }
  ~TableTest() override {
    mgr_db::CloseDatabase();
    mgr_seal::SetKeyFile({});
  }

  int Add(const std::string& name, int size = 0) {
    Thing thing;
    thing.New();
    thing.name = name;
    thing.size = size;
    thing.Post();
    return thing.id;
  }

  std::vector<std::string> Names(const mgr_db::CustomTable::Match& match = {},
                                 const std::string& order = "id") {
    std::vector<std::string> names;
    Thing thing;
    for (thing.DbSelect(match, order); !thing.Eof(); thing.Next()) {
      names.push_back(thing.name);
    }
    return names;
  }

  support::TempDir dir_;
  mgr_db::Cache cache_;
};

std::string TypeOf(const std::function<void()>& work) {
  try {
    work();
  } catch (const mgr_err::Error& error) {
    return error.type();
  }
  return "none";
}

TEST_F(TableTest, FieldsOfANewRowAreEmpty) {
  Thing thing;
  thing.New();
  EXPECT_EQ(0, thing.id);
  EXPECT_EQ("", std::string(thing.name));
  EXPECT_EQ(0, thing.size);
  EXPECT_FALSE(thing.active);
  EXPECT_EQ("", std::string(thing.secret));
  EXPECT_EQ("0", thing.size.AsString());
  EXPECT_EQ("off", thing.active.AsString());
}

TEST_F(TableTest, PostedValuesAreReadBack) {
  Thing thing;
  thing.New();
  thing.name = "a";
  thing.size = -5;
  thing.active = true;
  thing.secret = "hidden";
  thing.Post();
  EXPECT_GT(thing.id, 0);

  Thing again;
  again.Assert(thing.id);
  EXPECT_EQ("a", std::string(again.name));
  EXPECT_EQ(-5, again.size);
  EXPECT_EQ("-5", again.size.AsString());
  EXPECT_TRUE(again.active);
  EXPECT_EQ("on", again.active.AsString());
  EXPECT_EQ("hidden", std::string(again.secret));
}

TEST_F(TableTest, ATableFromNowhereStartsANewRow) {
  Thing thing;
  thing.name = "fresh";
  thing.Post();
  EXPECT_THAT(Names(), ElementsAre("fresh"));
}

TEST_F(TableTest, NumbersKeepTheirWholeRange) {
  for (const int number : {-2147483647 - 1, -1, 0, 1, 2147483647}) {
    Plain plain;
    Thing thing;
    thing.name = std::to_string(number);
    thing.size = number;
    thing.Post();
    Thing again;
    again.Assert(thing.id);
    EXPECT_EQ(number, again.size);
  }
}

TEST_F(TableTest, TextOfAnyKindIsKeptAsItIs) {
  std::vector<std::string> texts = {
      "'; DROP TABLE things; --", "\"quoted\"", "a\\b", "%_*?", ":v1",         "$1",  "?",
      std::string("a\0b", 3),     "\xc3\xbc",   "007",  "1e3",  " both ends ", "NULL"};
  for (const std::string& text : texts) {
    SCOPED_TRACE(text);
    const int id = Add(text);
    Thing thing;
    thing.Assert(id);
    EXPECT_EQ(text, std::string(thing.name));
    EXPECT_TRUE(thing.DbFind({{"name", text}}));
    EXPECT_EQ(id, thing.id);
  }
  EXPECT_EQ(texts.size(), Names().size());
}

TEST_F(TableTest, ATakenUniqueValueIsRefusedWithoutSayingIt) {
  Add("canary");
  Thing thing;
  thing.name = "canary";
  try {
    thing.Post();
    FAIL() << "posted";
  } catch (const mgr_err::Error& error) {
    EXPECT_EQ("exists", error.type());
    EXPECT_EQ("things.name", error.object());
    EXPECT_THAT(error.what(), Not(HasSubstr("canary")));
  }
  thing.name = "other";  // the table is as it was: still a new row
  thing.Post();
  EXPECT_THAT(Names(), ElementsAre("canary", "other"));
}

TEST_F(TableTest, UpdateWritesChangedColumnsOnly) {
  const int id = Add("a", 1);
  Thing mine, yours;
  mine.Assert(id);
  yours.Assert(id);
  mine.name = "renamed";
  yours.size = 7;
  mine.Post();
  yours.Post();
  Thing now;
  now.Assert(id);
  EXPECT_EQ("renamed", std::string(now.name));
  EXPECT_EQ(7, now.size);
}

TEST_F(TableTest, ASecondPostUpdatesTheRowThatTheFirstInserted) {
  Thing thing;
  thing.name = "a";
  thing.Post();
  thing.size = 3;
  thing.Post();
  thing.Post();
  EXPECT_THAT(Names({{"size", "3"}}), ElementsAre("a"));
  EXPECT_EQ(1u, Names().size());
}

TEST_F(TableTest, ARowThatIsGoneIsMissedByPost) {
  const int id = Add("a");
  Thing mine, yours;
  mine.Assert(id);
  yours.Assert(id);
  yours.DbDelete();
  mine.size = 1;
  EXPECT_EQ("missed", TypeOf([&] { mine.Post(); }));
  EXPECT_TRUE(Names().empty());
}

TEST_F(TableTest, FindKeepsTheRowWhenThereIsNone) {
  Add("a", 4);
  Thing thing;
  ASSERT_TRUE(thing.DbFind({{"name", "a"}}));
  EXPECT_FALSE(thing.DbFind({{"name", "b"}}));
  EXPECT_EQ("a", std::string(thing.name));
  EXPECT_EQ(4, thing.size);
}

TEST_F(TableTest, FindMatchesEveryPair) {
  Add("a", 1);
  Add("b", 1);
  Thing thing;
  EXPECT_TRUE(thing.DbFind({{"size", "1"}, {"name", "b"}}));
  EXPECT_EQ("b", std::string(thing.name));
  EXPECT_FALSE(thing.DbFind({{"size", "2"}, {"name", "b"}}));
}

TEST_F(TableTest, AColumnThatIsNoneNeverBecomesSql) {
  Thing thing;
  EXPECT_EQ("internal", TypeOf([&] { thing.DbFind({{"1=1 OR name", "x"}}); }));
  EXPECT_EQ("internal", TypeOf([&] { thing.DbSelect({}, "id; DELETE FROM things"); }));
}

TEST_F(TableTest, AssertNamesTableAndNumber) {
  Thing thing;
  try {
    thing.Assert(99);
    FAIL() << "found";
  } catch (const mgr_err::Error& error) {
    EXPECT_STREQ("missed: things: 99", error.what());
  }
}

TEST_F(TableTest, SelectWalksMatchingRowsInOrder) {
  Add("c", 1);
  Add("a", 1);
  Add("b", 2);
  EXPECT_THAT(Names({}, "name"), ElementsAre("a", "b", "c"));
  EXPECT_THAT(Names({{"size", "1"}}, "name"), ElementsAre("a", "c"));
  EXPECT_THAT(Names({{"size", "9"}}), ElementsAre());
}

TEST_F(TableTest, AWalkGoesOnAfterARowWasDeleted) {
  Add("a", 1);
  Add("b", 2);
  Add("c", 3);
  Thing thing;
  std::vector<std::string> walked;
  for (thing.DbSelect(); !thing.Eof(); thing.Next()) {
    walked.push_back(thing.name);
    if (thing.size == 2) {
      thing.DbDelete();
    }
  }
  EXPECT_THAT(walked, ElementsAre("a", "b", "c"));
  EXPECT_THAT(Names(), ElementsAre("a", "c"));
}

TEST_F(TableTest, DeleteWithAConditionTakesMatchingRows) {
  Add("a", 1);
  Add("b", -5);
  Add("c", 3);
  Thing thing;
  thing.DbDelete("size != -5");
  EXPECT_THAT(Names(), ElementsAre("b"));
}

TEST_F(TableTest, NumbersOfDeletedRowsAreNotUsedAgain) {
  const int first = Add("a");
  Thing thing;
  thing.Assert(first);
  thing.DbDelete();
  EXPECT_GT(Add("b"), first);
}

TEST_F(TableTest, PlainSchemaHoldsEveryField) {
  Plain plain;
  plain.text = "x";
  plain.on = true;
  plain.Post();
  Plain again;
  again.Assert(plain.id);
  EXPECT_EQ("x", std::string(again.text));
  EXPECT_TRUE(again.on);
}

TEST_F(TableTest, SealedTextIsNowhereInTheFiles) {
  Thing thing;
  thing.name = "a";
  thing.secret = "canary-in-clear";
  EXPECT_THAT(thing.secret.AsString(), Not(HasSubstr("canary")));
  thing.Post();
  for (const char* file : {"panel.db", "panel.db-wal"}) {
    EXPECT_THAT(dir_.Read(file), Not(HasSubstr("canary"))) << file;
  }
}

TEST_F(TableTest, EmptySealedTextStaysEmpty) {
  Thing thing;
  thing.name = "a";
  thing.secret = "x";
  thing.secret = "";
  EXPECT_EQ("", thing.secret.Stored());
}

TEST_F(TableTest, SealedTextOfAnotherKeyDoesNotOpen) {
  Thing thing;
  thing.secret = "x";
  mgr_seal::SetKeyFile(dir_ / "other.key");
  mgr_seal::Seal("y");
  EXPECT_EQ("db", TypeOf([&] { (void)std::string(thing.secret); }));
}

TEST_F(TableTest, CacheGivesTheSameObjectAgainAsANewRow) {
  Add("a", 1);
  Thing* first = nullptr;
  {
    const auto thing = cache_.Get<Thing>();
    first = thing.get();
    ASSERT_TRUE(thing->DbFind({{"name", "a"}}));
    thing->DbSelect();
  }
  const auto again = cache_.Get<Thing>();
  EXPECT_EQ(first, again.get());
  EXPECT_EQ(0, again->id);
  EXPECT_EQ("", std::string(again->name));
  EXPECT_TRUE(again->Eof());
}

TEST_F(TableTest, TablesInUseAreNotHandedOutTwice) {
  const auto one = cache_.Get<Thing>();
  const auto other = cache_.Get<Thing>();
  EXPECT_NE(one.get(), other.get());
}

TEST_F(TableTest, TablesComeBackWhenAnExceptionFlies) {
  Thing* seen = nullptr;
  EXPECT_EQ("missed", TypeOf([&] {
              const auto thing = cache_.Get<Thing>();
              seen = thing.get();
              thing->Assert(12345);
            }));
  EXPECT_EQ(seen, cache_.Get<Thing>().get());
}

TEST_F(TableTest, ALeadingStarOfATypeNameIsDropped) {
  mgr_db::CustomTable* table = cache_.Get(std::string("*") + typeid(Thing).name());
  EXPECT_NE(nullptr, dynamic_cast<Thing*>(table));
  cache_.Put(table);
}

TEST_F(TableTest, UnknownClassesAndNothingAreHandled) {
  EXPECT_EQ("internal", TypeOf([&] { cache_.Get("nobody"); }));
  cache_.Put(nullptr);
  cache_.Put(new Thing);
  mgr_db::Cache other;
  other.Put(new Thing);  // of a class that it does not know: deleted
}

TEST_F(TableTest, CacheServesManyThreads) {
  std::vector<std::jthread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([this, t] {
      for (int i = 0; i < 25; ++i) {
        const auto thing = cache_.Get<Thing>();
        thing->name = std::to_string(t) + "-" + std::to_string(i);
        thing->Post();
        EXPECT_TRUE(thing->DbFind({{"id", thing->id.AsString()}}));
      }
    });
  }
  threads.clear();
  EXPECT_EQ(100u, Names().size());
}

}  // namespace
