#include "conf_dataset.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "framework/conf_defer.h"
#include "tests/unit/framework/conf_fixture.h"

namespace {

using conf_fixture::AddUser;
using conf_fixture::ConfTest;
using conf_fixture::ErrorOf;
using conf_fixture::Line;
using conf_fixture::Names;
using conf_fixture::SetPassword;
using conf_fixture::Users;

using ConfDataSetTest = ConfTest;

constexpr const char* kMaildir = "maildir:~/.maildir userdb_quota_rule=*:bytes=0M";

TEST_F(ConfDataSetTest, ALineReadsAsNineFields) {
  Write("a@x.org:{SHA512-CRYPT}$6$h:1001:1002:info:/home/a:shell:flags:" + std::string(kMaildir) +
        "\n");
  const auto users = Open();
  ASSERT_TRUE(users->Find("a@x.org"));
  const std::vector<std::string> want = {
      "a@x.org", "{SHA512-CRYPT}$6$h", "1001", "1002", "info", "/home/a", "shell", "flags",
      kMaildir};
  for (std::size_t column = 0; column < want.size(); ++column) {
    SCOPED_TRACE("column " + std::to_string(column + 1));
    EXPECT_EQ(users->Fields()[column]->Str(), want[column]);
  }
}

TEST_F(ConfDataSetTest, ANewLineHasEmptyColumnsWhereNothingWasSet) {
  AddUser(Open(), "a@x.org");
  EXPECT_EQ(Content(), "a@x.org::1000:1000::/home/a@x.org:::" + std::string(kMaildir) + "\n");
}

TEST_F(ConfDataSetTest, APostChangesTheSetColumnsOfOneLineAndNoOtherByte) {
  const std::string before = "# head\n\n:x\n" + Line("a") + "\nshort:line\n" + Line("b") + "\r\n";
  const std::string after = "\n  \n" + Line("c");
  Write(before + Line("d", "old") + "\n" + after);
  SetPassword(Open(), "d", "new");
  EXPECT_EQ(Content(), before + Line("d", "new") + "\n" + after);
}

TEST_F(ConfDataSetTest, LinesThatAreNoRecordsAreNotOffered) {
  Write("# " + Line("x") + "\n\n:" + Line("y") + "\na:b:c:d:e:f:g:h\nalone\n" + Line("z") + "\n");
  const auto users = Open();
  EXPECT_EQ(Names(users), std::vector<std::string>{"z"});
  EXPECT_FALSE(users->Find("a"));
  EXPECT_FALSE(users->Find("# x"));
  EXPECT_FALSE(users->Find("alone"));
  EXPECT_FALSE(users->Find(""));
}

TEST_F(ConfDataSetTest, CarriageReturnsBelongToTheEndOfTheLine) {
  Write(Line("a") + "\r\n" + Line("b") + "\r\n");
  const auto users = Open();
  users->Assert("b");
  EXPECT_EQ(users->maildir.Str(), kMaildir);
  users->maildir.Set("m");
  users->Post("");
  AddUser(users, "c");
  EXPECT_EQ(Content(), Line("a") + "\r\nb:{X}h:1000:1000::/home/b:::m\r\nc::1000:1000::/home/c:::" +
                           kMaildir + "\r\n");
}

TEST_F(ConfDataSetTest, ALastLineKeepsHavingNoEndUntilALineIsAdded) {
  Write(Line("a") + "\n" + Line("b"));
  const auto users = Open();
  SetPassword(users, "b", "new");
  EXPECT_EQ(Content(), Line("a") + "\n" + Line("b", "new"));
  AddUser(users, "c");
  EXPECT_EQ(Content(),
            Line("a") + "\n" + Line("b", "new") + "\nc::1000:1000::/home/c:::" + kMaildir + "\n");
}

TEST_F(ConfDataSetTest, OfTwoLinesWithOneNameFindGivesTheFirst) {
  Write(Line("a", "1") + "\n" + Line("a", "2") + "\n");
  const auto users = Open();
  users->Assert("a");
  EXPECT_EQ(users->passwd.Str(), "1");
  users->_Delete(true);
  users->Assert("a");
  EXPECT_EQ(users->passwd.Str(), "2");
}

TEST_F(ConfDataSetTest, AWalkThatPostsOnTheSecondOfTwoEqualNamesChangesThatOne) {
  Write(Line("a", "1") + "\n" + Line("a", "2") + "\n");
  const auto users = Open();
  users->First();
  users->Next();
  users->passwd.Set("new");
  users->Post("");
  EXPECT_EQ(Content(), Line("a", "1") + "\n" + Line("a", "new") + "\n");
}

TEST_F(ConfDataSetTest, ANameThatIsTakenIsRefusedWhateverItsLine) {
  const struct {
    const char* name;
    std::string content;
  } cases[] = {
      {"a record", Line("a") + "\n"},
      {"a short line", "a:b\n"},
      {"a name alone", "x:\na\n"},
      {"a name alone without an end", "a"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    Write(test.content);
    const auto users = Open();
    EXPECT_EQ(ErrorOf([&] { AddUser(users, "a"); }), "exists: name: a");
    EXPECT_TRUE(users->Eof());
    EXPECT_EQ(Content(), test.content);
  }
}

TEST_F(ConfDataSetTest, ValuesThatTheFileCannotHoldAreRefusedWithoutBeingTold) {
  const auto users = Open();
  users->New();
  const struct {
    const char* name;
    dd::Field& field;
    std::string value;
    const char* error;
  } cases[] = {
      {"colon", users->passwd, "secret:x", "value: passwd: must not contain ':'"},
      {"line feed", users->passwd, "secret\nx", "value: passwd: line break not allowed"},
      {"carriage return", users->home, "secret\r", "value: home: line break not allowed"},
      {"NUL", users->maildir, std::string("secret\0", 7), "value: maildir: NUL not allowed"},
      {"comment", users->name, "#secret", "value: name: must not begin as a comment does"},
      {"letters", users->uid, "secret", "value: uid: is not of the form that this field takes"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    EXPECT_EQ(ErrorOf([&] { test.field.Set(test.value); }), test.error);
    EXPECT_EQ(test.field.Str(), "");
  }
  users->maildir.Set(kMaildir);
  EXPECT_EQ(users->maildir.Str(), kMaildir);
}

TEST_F(ConfDataSetTest, ARecordWithoutANameIsRefused) {
  const auto users = Open();
  users->New();
  EXPECT_EQ(ErrorOf([&] { users->Post(""); }), "value: name: must not be empty");
  Write(Line("a") + "\n");
  users->Assert("a");
  users->name.Set("");
  EXPECT_EQ(ErrorOf([&] { users->Post(""); }), "value: name: must not be empty");
  EXPECT_EQ(users->name.Str(), "a");
  EXPECT_EQ(Content(), Line("a") + "\n");
}

TEST_F(ConfDataSetTest, APostTakesNoPlace) {
  Write(Line("a") + "\n");
  const auto users = Open();
  users->Assert("a");
  users->passwd.Set("new");
  EXPECT_EQ(ErrorOf([&] { users->Post("before b"); }), "value: place: must be empty");
  users->Post("");
  EXPECT_EQ(Content(), Line("a") + "\n") << "what was refused was posted later";
}

TEST_F(ConfDataSetTest, RemovedLinesLeaveTheOthersAndTheWalkGoesOnBehindThem) {
  Write("#1\n" + Line("a") + "\n#2\n" + Line("b") + "\n" + Line("c") + "\n");
  const auto users = Open();
  users->Assert("b");
  users->_Delete(true);
  EXPECT_EQ(Content(), "#1\n" + Line("a") + "\n#2\n" + Line("c") + "\n");
  EXPECT_EQ(users->name.Str(), "");
  users->Next();
  EXPECT_EQ(users->name.Str(), "c");
  EXPECT_EQ(ErrorOf([&] { users->Assert("b"); }), "missed: name: b");
  EXPECT_EQ(users->name.Str(), "c") << "a failing look-up moved the cursor";
}

TEST_F(ConfDataSetTest, ARemovalWithoutASaveIsSavedByTheNextPost) {
  Write(Line("a") + "\n" + Line("b") + "\n");
  const auto users = Open();
  users->Assert("a");
  users->Delete();
  EXPECT_FALSE(users->Find("a"));
  EXPECT_EQ(Content(), Line("a") + "\n" + Line("b") + "\n");
  SetPassword(users, "b", "new");
  EXPECT_EQ(Content(), Line("b", "new") + "\n");
}

TEST_F(ConfDataSetTest, TheLastLineCanBeRemoved) {
  Write(Line("a"));
  const auto users = Open();
  users->Assert("a");
  users->_Delete(true);
  EXPECT_EQ(Content(), "");
  EXPECT_EQ(Names(users), std::vector<std::string>{});
}

TEST_F(ConfDataSetTest, ANameCanBeChangedToOneThatIsFree) {
  Write(Line("a") + "\n" + Line("b") + "\n");
  const auto users = Open();
  users->Assert("a");
  users->name.Set("b");
  EXPECT_EQ(ErrorOf([&] { users->Post(""); }), "exists: name: b");
  users->name.Set("c");
  users->Post("");
  EXPECT_FALSE(users->Find("a"));
  EXPECT_TRUE(users->Find("c"));
  EXPECT_EQ(Names(users), (std::vector<std::string>{"c", "b"}));
}

TEST_F(ConfDataSetTest, SetValuesAreSeenByTheirCursorAloneUntilThePost) {
  Write(Line("a", "old") + "\n");
  const auto mine = Open();
  const auto other = Open();
  mine->Assert("a");
  other->Assert("a");
  mine->passwd.Set("new");
  EXPECT_EQ(mine->passwd.Str(), "new");
  EXPECT_EQ(other->passwd.Str(), "old");
  mine->Post("");
  EXPECT_EQ(other->passwd.Str(), "new");
}

TEST_F(ConfDataSetTest, EraseSetsAColumnEmpty) {
  Write(Line("a", "old") + "\n");
  const auto users = Open();
  users->Assert("a");
  users->Erase(2);
  users->Post("");
  EXPECT_EQ(Content(), Line("a", "") + "\n");
}

TEST_F(ConfDataSetTest, ColumnsThatDoNotExistAreRefused) {
  const auto users = Open();
  users->New();
  EXPECT_EQ(ErrorOf([&] { users->SetField(0, "x"); }), "internal: unknown: no column 0");
  EXPECT_EQ(ErrorOf([&] { users->SetField(10, "x"); }), "internal: unknown: no column 10");
}

TEST_F(ConfDataSetTest, LinesAndTheirPlacesCanBeReadFromASource) {
  Write("#\n" + Line("a") + "\r\nx:y\n" + Line("b"));
  const auto users = Open();
  const ConfAllocation* places = users->getAlloc();
  ASSERT_EQ(places->lines.size(), 2U);
  EXPECT_EQ(places->lines[0], (std::pair<std::size_t, std::size_t>(2, Line("a").size())));
  const ConfSrc* source = users->getConfig();
  EXPECT_EQ(source->path, path_);
  EXPECT_EQ(source->bytes.substr(places->lines[1].first, places->lines[1].second), Line("b"));
  ConfAllocation rest;
  users->RawRead(static_cast<int>(places->lines[1].first), users->getConfig(), &rest);
  EXPECT_EQ(rest.lines, (std::vector<std::pair<std::size_t, std::size_t>>{places->lines[1]}));
}

TEST_F(ConfDataSetTest, ALineCanBeParsedIntoANewRecord) {
  const auto users = Open();
  users->New();
  const std::string line = Line("a");
  users->Parse({line});
  users->Post("");
  EXPECT_EQ(Content(), line + "\n");
}

// The cursor uses memory again in which values of the record before have stood.
TEST_F(ConfDataSetTest, RecordsOfOneCursorHaveNothingOfEachOther) {
  const struct {
    const char* name;
    std::vector<std::pair<unsigned long, std::string>> set;  // column 0 stands for a refused post
    std::string line;
  } cases[] = {
      {"all columns, long",
       {{1, std::string(40, 'a')},
        {2, std::string(90, 'p')},
        {3, "1"},
        {4, "2"},
        {5, "info"},
        {6, "/home"},
        {7, "shell"},
        {8, "flags"},
        {9, std::string(30, 'm')}},
       std::string(40, 'a') + ":" + std::string(90, 'p') +
           ":1:2:info:/home:shell:flags:" + std::string(30, 'm')},
      {"the name alone", {{1, "b"}}, "b::::::::"},
      {"in another order", {{9, "m"}, {2, "p"}, {1, "c"}}, "c:p:::::::m"},
      {"set twice", {{1, "x"}, {2, "long, and longer"}, {1, "d"}, {2, "p"}}, "d:p:::::::"},
      {"a name that is taken", {{1, "b"}, {2, "refused"}, {5, "info"}, {0, ""}}, ""},
      {"after that", {{1, "e"}, {6, "/home"}}, "e:::::/home:::"},
      {"a name that is missing", {{2, "refused"}, {0, ""}}, ""},
      {"after that one", {{1, "f"}}, "f::::::::"},
  };
  const auto users = Open();
  std::string content;
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    users->New();
    for (const auto& [column, value] : test.set) {
      if (column != 0) users->SetField(column, value);
    }
    EXPECT_EQ(ErrorOf([&] { users->Post(""); }).empty(), !test.line.empty());
    if (!test.line.empty()) content += test.line + "\n";
    EXPECT_EQ(Content(), content);
  }
}

// After so many the document is made anew, of what was written.
TEST_F(ConfDataSetTest, AFileOfManyNewLinesIsGoneOnWith) {
  const struct {
    const char* name;
    std::string before;
  } cases[] = {{"new", ""}, {"with a line", Line("first") + "\n"}};
  const std::string hash(1000, 'h');
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    Write(test.before);
    std::string content = test.before;
    const auto users = Open();
    {
      DeferSaves scope(DeferSaves::Between::kNever);
      for (int number = 0; number < 1200; ++number) {
        const std::string name = "u" + std::to_string(number);
        users->New();
        users->name.Set(name);
        users->passwd.Set(hash);
        users->Post("");
        content += name + ":" + hash + ":::::::\n";
      }
      scope.Save();
    }
    EXPECT_TRUE(Content() == content);
    AddUser(users, "last");
    content += "last::1000:1000::/home/last:::" + std::string(kMaildir) + "\n";
    SetPassword(Open(), "u1199", hash);
    EXPECT_TRUE(Content() == content);
    EXPECT_TRUE(Open()->Find("u0"));
  }
}

// Marks what it is asked for, and notes where the values of the last record stand.
class Marked : public Users {
 public:
  Marked() : ConfDataSet(nullptr) {}
  std::string FieldValue(const std::string& field, const std::string& value) override {
    return Users::FieldValue(field, field == "home" ? "<" + value + ">" : value);
  }
  std::string FieldPrefix(const std::string& field) override {
    return Users::FieldPrefix(field) + (field == "shell" ? "/" : "");
  }
  std::string FieldSuffix(const std::string& field) override { return field == "name" ? "@" : ""; }
  std::string NewField(const std::string& field, const std::string& value) override {
    return Users::NewField(field, field == "flags" ? "f" : value);
  }
  std::string NewRecord(Columns& columns) override {
    values.clear();
    for (const auto& column : columns) values.emplace_back(column.second);
    return Users::NewRecord(columns);
  }
  std::string DummyString() const override { return "-"; }

  std::vector<std::string_view> values;
};

class MarkedConfig : public MgrCachedConfig<MarkedConfig> {
 public:
  MarkedConfig() {
    RegisterSyntax(UnixConfParams());
    RegisterDataSet<Marked>();
  }
  static Cursor<Marked> Open(const std::string& path) { return Get<Marked>(path, true); }
};

TEST_F(ConfDataSetTest, EachPartOfANewLineCanBeMadeByADerivedClass) {
  const auto marked = MarkedConfig::Open(path_);
  marked->New();
  marked->name.Set("a name of some length");
  marked->home.Set("/home/of/some/length");
  marked->flags.Set("x");
  marked->Post("");
  EXPECT_EQ(Content(), "a name of some length@:-:-:-:-:</home/of/some/length>:/-:f:-\n");
}

// Each overrides one part alone, of which one not in sight and one by a class between.
std::string Mark(const std::string& field) { return field == "home" ? "+" : ""; }

class OwnValue : public Users {
 public:
  OwnValue() : ConfDataSet(nullptr) {}

 private:
  std::string FieldValue(const std::string& field, const std::string& value) override {
    return Users::FieldValue(field, value) + Mark(field);
  }
};

class OwnPrefix : public Users {
 public:
  OwnPrefix() : ConfDataSet(nullptr) {}
  std::string FieldPrefix(const std::string& field) override {
    return Mark(field) + Users::FieldPrefix(field);
  }
};

class OwnSuffix : public Users {
 public:
  OwnSuffix() : ConfDataSet(nullptr) {}
  std::string FieldSuffix(const std::string& field) override { return Mark(field); }
};

class OwnSuffixToo : public OwnSuffix {
 public:
  OwnSuffixToo() : ConfDataSet(nullptr) {}
};

class OwnField : public Users {
 public:
  OwnField() : ConfDataSet(nullptr) {}
  std::string NewField(const std::string& field, const std::string& value) override {
    return Users::NewField(field, value) + Mark(field);
  }
};

class OwnSyntax : public Users {
 public:
  OwnSyntax() : ConfDataSet(nullptr) { params_.separator = ';'; }
  const mgr_token::Params* getParams() override { return &params_; }

 private:
  mgr_token::Params params_;
};

class PartsConfig : public MgrCachedConfig<PartsConfig> {
 public:
  PartsConfig() {
    RegisterSyntax(UnixConfParams());
    RegisterDataSet<Users>();
    RegisterDataSet<OwnValue>();
    RegisterDataSet<OwnPrefix>();
    RegisterDataSet<OwnSuffix>();
    RegisterDataSet<OwnSuffixToo>();
    RegisterDataSet<OwnField>();
    RegisterDataSet<OwnSyntax>();
  }
  template <class DataSet>
  static std::string LineOf(const std::string& path) {
    Users::Columns columns = {{6, "/h"}, {1, "a"}};
    return Get<DataSet>(path, true)->NewRecord(columns);
  }
};

TEST_F(ConfDataSetTest, OnePartOfALineThatADerivedClassMakesIsEnoughForItToBeAsked) {
  EXPECT_EQ(PartsConfig::LineOf<Users>(path_), "a:::::/h:::");
  EXPECT_EQ(PartsConfig::LineOf<OwnValue>(path_), "a:::::/h+:::");
  EXPECT_EQ(PartsConfig::LineOf<OwnPrefix>(path_), "a::::+:/h:::");
  EXPECT_EQ(PartsConfig::LineOf<OwnSuffix>(path_), "a:::::/h+:::");
  EXPECT_EQ(PartsConfig::LineOf<OwnSuffixToo>(path_), "a:::::/h+:::");
  EXPECT_EQ(PartsConfig::LineOf<OwnField>(path_), "a:::::/h+:::");
  EXPECT_EQ(PartsConfig::LineOf<OwnSyntax>(path_), "a;;;;;/h;;;");
}

TEST_F(ConfDataSetTest, ALineIsThatOfItsPartsAndMissingColumnsAreAdded) {
  const struct {
    const char* name;
    Users::Columns columns;
  } cases[] = {
      {"none", {}},
      {"all",
       {{1, "a"},
        {2, "b"},
        {3, "c"},
        {4, "d"},
        {5, "e"},
        {6, "f"},
        {7, "g"},
        {8, "h"},
        {9, "i:j"}}},
      {"in no order", {{9, "m:n"}, {1, "a"}, {4, "7"}, {2, ""}}},
      {"one twice", {{2, "first"}, {2, "second"}, {1, "a"}}},
      {"of no field", {{10, "x"}, {1, "a"}}},
  };
  const auto users = Open();
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    Users::Columns columns = test.columns;
    const std::string line = users->NewRecord(columns);
    std::string parts;
    for (const dd::Field* field : users->Fields()) {
      const auto value = std::find_if(columns.begin(), columns.end(), [&](const auto& column) {
        return column.first == field->Column();
      });
      ASSERT_NE(value, columns.end());
      parts += users->NewField(field->Name(), value->second);
    }
    EXPECT_EQ(line, parts);
    EXPECT_TRUE(std::equal(test.columns.begin(), test.columns.end(), columns.begin()));
  }
}

TEST_F(ConfDataSetTest, MemoryThatACursorKeepsHoldsNoValue) {
  const std::string secret(40, 's');
  for (const bool refused : {false, true}) {
    SCOPED_TRACE(refused ? "refused" : "stored");
    const auto marked = MarkedConfig::Open(path_);
    marked->New();
    marked->name.Set(refused ? "a@" : "a");  // which has been stored as "a@"
    marked->passwd.Set(secret);
    EXPECT_EQ(ErrorOf([&] { marked->Post(""); }).empty(), !refused);
    ASSERT_EQ(marked->values.size(), 2U);
    EXPECT_EQ(marked->values[1], std::string(secret.size(), '\0'));
  }
}

// Values come to a line by other ways than Set, which has refused them before.
TEST_F(ConfDataSetTest, ALineIsNeverMadeOfValuesThatItCannotHold) {
  const struct {
    const char* name;
    unsigned long column;
    std::string value;
    const char* error;
  } cases[] = {
      {"line break", 2, "p\nroot:x", "value: passwd: line break not allowed"},
      {"carriage return", 9, "m\r", "value: maildir: line break not allowed"},
      {"line break beside separators", 9, "m:x\nroot:x", "value: maildir: line break not allowed"},
      {"separator before the last column", 8, ":", "value: flags: must not contain ':'"},
      {"NUL", 6, std::string("/\0", 2), "value: home: NUL not allowed"},
      {"separator", 1, "a:b", "value: name: must not contain ':'"},
      {"separator in a long value", 2, std::string(60, 'p') + ":",
       "value: passwd: must not contain ':'"},
      {"comment", 1, "#a", "value: name: must not begin as a comment does"},
  };
  const auto users = Open();
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    Users::Columns columns = {{test.column, test.value}};
    const std::string field = users->Fields()[test.column - 1]->Name();
    EXPECT_EQ(ErrorOf([&] { users->NewRecord(columns); }), test.error);
    EXPECT_EQ(ErrorOf([&] { users->NewField(field, test.value); }), test.error);
    EXPECT_EQ(ErrorOf([&] { users->FieldValue(field, test.value); }), test.error);
  }
  EXPECT_EQ(ErrorOf([&] { users->FieldValue("none", "x"); }), "internal: unknown: no field none");
}

TEST_F(ConfDataSetTest, ADatasetWithoutAFileSaysSo) {
  Users alone;
  EXPECT_EQ(ErrorOf([&] { alone.First(); }), "internal: unknown: a dataset without a file");
}

class Guarded : public Users {
 public:
  Guarded() : ConfDataSet(nullptr) {}
  void onBeforeNew() override { Note("before new"); }
  void onBeforePost() override { Note("before post"); }
  void onBeforeDelete() override { Note("before delete"); }
  void onAfterNew() override { calls.push_back("after new"); }
  void onAfterPost() override { calls.push_back("after post"); }
  void onAfterDelete() override { calls.push_back("after delete"); }

  void Note(const std::string& call) {
    if (call == refused) throw mgr_err::Error("limit", call);
    calls.push_back(call);
  }

  std::string refused;
  std::vector<std::string> calls;
};

class GuardedConfig : public MgrCachedConfig<GuardedConfig> {
 public:
  GuardedConfig() {
    RegisterSyntax(UnixConfParams());
    RegisterDataSet<Guarded>();
  }
};

TEST_F(ConfDataSetTest, HooksStandAroundEachStepAndMayPreventIt) {
  const auto users = GuardedConfig::Get<Guarded>(path_, true);
  users->New();
  users->name.Set("a");
  users->Post("");
  users->_Delete(true);
  EXPECT_EQ(users->calls,
            (std::vector<std::string>{"before new", "after new", "before post", "after post",
                                      "before delete", "after delete"}));
  users->refused = "before new";
  EXPECT_EQ(ErrorOf([&] { users->New(); }), "limit: before new");
  users->refused = "before post";
  users->New();
  users->name.Set("b");
  EXPECT_EQ(ErrorOf([&] { users->Post(""); }), "limit: before post");
  EXPECT_EQ(Content(), "");
}

}  // namespace
