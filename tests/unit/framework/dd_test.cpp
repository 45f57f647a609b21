#include "dd.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "mgr_err.h"
#include "test.h"
#include "tests/unit/framework/conf_fixture.h"

namespace {

using conf_fixture::ErrorOf;

/// Rows in memory.
class Rows : public dd::RecordCache {
 public:
  dd::RecordPtr First() override { return At(0); }
  dd::RecordPtr Next(dd::RecordPtr place) override { return At(place.at + 1); }
  dd::RecordPtr Find(const std::string& key) override {
    for (std::size_t row = 0; row < rows.size(); ++row) {
      if (rows[row][0] == key) return {row};
    }
    return {};
  }
  std::string Value(dd::RecordPtr place, unsigned long column) override {
    return rows[place.at][column - 1];
  }
  void CheckValue(unsigned long, const std::string& field,
                  const std::string& value) const override {
    if (value == "forbidden") throw mgr_err::Error("value", field, "not storable");
  }
  void BeforeNew() override {
    if (full) throw mgr_err::Error("limit", "rows");
  }
  void AfterNew() override { ++started; }

  std::vector<std::vector<std::string>> rows{{"a", "1"}, {"b", "2"}};
  bool full = false;
  int started = 0;

 private:
  dd::RecordPtr At(std::size_t row) const {
    return row < rows.size() ? dd::RecordPtr{row} : dd::RecordPtr{};
  }
};

class Pair : public dd::Record {
 public:
  std::string DummyString() const override { return "unset"; }
  dd::RecordCache& GetCache() override { return storage; }
  void Delete() override {
    storage.rows.erase(storage.rows.begin() + static_cast<long>(Current().at));
  }
  void Post(const std::string&) override {
    for (const auto& [column, value] : SetValues()) storage.rows[Current().at][column - 1] = value;
    MoveTo(Current());
  }
  void Erase(unsigned long column) override { SetField(column, ""); }
  using dd::Record::SetValues;

  Rows storage;
  dd::Field key{this, "key"};
  dd::Field number{this, "number", &test::Trim<&test::Numeric>};
};

TEST(Record, FieldsGetTheirColumnsInTheOrderOfTheirDeclaration) {
  Pair pair;
  ASSERT_EQ(pair.Fields().size(), 2U);
  EXPECT_EQ(pair.Fields()[1]->Name(), "number");
  EXPECT_EQ(pair.key.Column(), 1U);
  EXPECT_EQ(pair.number.Column(), 2U);
}

TEST(Record, AWalkBeginsByFirstAndEndsBehindTheLast) {
  Pair pair;
  EXPECT_TRUE(pair.Eof());
  std::string seen;
  for (pair.First(); !pair.Eof(); pair.Next()) seen += pair.key.Str() + pair.number.Str();
  EXPECT_EQ(seen, "a1b2");
  EXPECT_EQ(pair.key.Str(), "");
  pair.Next();
  EXPECT_TRUE(pair.Eof());
}

TEST(Record, FindAndAssertMoveOnlyToWhatIsThere) {
  Pair pair;
  EXPECT_TRUE(pair.Find("b"));
  EXPECT_EQ(pair.number.Str(), "2");
  EXPECT_FALSE(pair.Find("c"));
  EXPECT_EQ(ErrorOf([&] { pair.Assert("c"); }), "missed: name: c");
  EXPECT_EQ(pair.key.Str(), "b");
  pair.Assert("a");
  EXPECT_EQ(pair.key.Str(), "a");
}

TEST(Record, SetValuesAreReadBackUntilTheCursorMoves) {
  Pair pair;
  pair.First();
  pair.number.Set("7");
  EXPECT_EQ(pair.number.Str(), "7");
  EXPECT_EQ(pair.storage.rows[0][1], "1");
  pair.Next();
  pair.First();
  EXPECT_EQ(pair.number.Str(), "1");
}

TEST(Record, SetValuesStandInTheOrderOfTheirColumnsAndTheLastOneCounts) {
  const struct {
    const char* name;
    Pair::Columns set;
    Pair::Columns values;
  } cases[] = {
      {"in order", {{1, "c"}, {2, "3"}}, {{1, "c"}, {2, "3"}}},
      {"against it", {{2, "3"}, {1, "c"}}, {{1, "c"}, {2, "3"}}},
      {"set again", {{1, "c"}, {2, "3"}, {1, "d"}}, {{1, "d"}, {2, "3"}}},
      {"the last one again", {{2, "3"}, {2, "4"}}, {{2, "4"}}},
      {"empty", {{2, "3"}, {2, ""}}, {{2, ""}}},
      {"none", {}, {}},
  };
  Pair pair;
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    pair.First();
    for (const auto& [column, value] : test.set) pair.SetField(column, value);
    EXPECT_EQ(pair.SetValues(), test.values);
  }
}

TEST(Record, WhatWasRefusedIsNotSetAndWhatWasSetBeforeStays) {
  Pair pair;
  pair.First();
  pair.key.Set("c");
  EXPECT_EQ(ErrorOf([&] { pair.key.Set("forbidden"); }), "value: key: not storable");
  EXPECT_EQ(pair.SetValues(), (Pair::Columns{{1, "c"}}));
}

// The record keeps the memory of values, which may be secrets.
TEST(Record, ValuesThatAreNotSetAnyMoreAreOverwritten) {
  const std::string secret(40, 's');
  const struct {
    const char* name;
    std::function<void(Pair&)> leave;
  } cases[] = {
      {"moved", [](Pair& pair) { pair.Next(); }},
      {"new record", [](Pair& pair) { pair.New(); }},
      {"stored", [](Pair& pair) { pair.Post(""); }},
      {"set to another value", [](Pair& pair) { pair.key.Set("x"); }},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    Pair pair;
    pair.First();
    pair.key.Set(secret);
    const std::string_view memory = pair.SetValues().front().second;
    test.leave(pair);
    EXPECT_EQ(memory, std::string(secret.size(), '\0'));
  }
}

TEST(Record, ANewRecordReadsAsUnsetAndIsNoEnd) {
  Pair pair;
  pair.First();
  pair.New();
  EXPECT_FALSE(pair.Eof());
  EXPECT_EQ(pair.key.Str(), "unset");
  pair.key.Set("c");
  EXPECT_EQ(pair.key.Str(), "c");
  EXPECT_EQ(pair.storage.started, 1);
  pair.Next();
  EXPECT_TRUE(pair.Eof());
}

TEST(Record, AStorageCanPreventANewRecord) {
  Pair pair;
  pair.First();
  pair.storage.full = true;
  EXPECT_EQ(ErrorOf([&] { pair.New(); }), "limit: rows");
  EXPECT_EQ(pair.key.Str(), "a");
}

TEST(Record, KeyValIsTheFirstColumnOfAPlace) {
  Pair pair;
  EXPECT_EQ(pair.KeyVal({1}), "b");
  EXPECT_EQ(pair.KeyVal({}), "");
  EXPECT_EQ(pair.RsName(), "unknown");
}

TEST(Field, AValueIsCheckedMadeCanonicalAndThenOfferedToTheStorage) {
  const struct {
    const char* name;
    const char* value;
    const char* error;
    const char* stored;
  } cases[] = {
      {"digits", "42", "", "42"},
      {"blanks around digits", " \t42 ", "", "42"},
      {"a letter", "4x2", "value: number: is not of the form that this field takes", "1"},
      {"nothing", "", "value: number: is not of the form that this field takes", "1"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    Pair pair;
    pair.First();
    EXPECT_EQ(ErrorOf([&] { pair.number.Set(test.value); }), test.error);
    EXPECT_EQ(pair.number.Str(), test.stored);
  }
  Pair pair;
  pair.First();
  EXPECT_EQ(ErrorOf([&] { pair.key.Set("forbidden"); }), "value: key: not storable");
  EXPECT_EQ(pair.key.Str(), "a");
}

}  // namespace
