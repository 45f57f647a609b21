#include "brisq_db.h"

#include <thread>

#include "framework/config_file.h"
#include "framework/database.h"
#include "framework/request.h"
#include "panel/archive.h"
#include "panel/mailboxes.h"
#include "panel/records.h"
#include "panel/refresh_watch.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using panel_test::ErrorOf;
using panel_test::TextOf;

class Records : public panel_test::PanelTest {
 protected:
  Records() { AddBobsDomain(); }

  // Rows a0 to an, without a back-end.
  void AddRows(int count, const std::string& active = "on", const std::string& prefix = "a") {
    const auto email = brisq_panel::Table<brisq_db::EmailTable>();
    for (int i = 0; i < count; ++i) {
      email->New();
      email->name = prefix + std::to_string(i);
      email->domain = 1;
      email->owner = 1;
      email->active = active == "on";
      email->Post();
    }
  }
  static void Tag(const std::string& condition, int tag) {
    mgr_db::ThreadConnection()->Change("UPDATE mailboxes SET tag = " + std::to_string(tag) +
                                       " WHERE " + condition);
  }
  static void Sweep(const std::string& condition) {
    brisq_panel::Table<brisq_db::EmailTable>()->DbDelete(condition);
  }
  std::string Rows() { return Column("SELECT COUNT(*) FROM mailboxes"); }
  std::string Archived() { return Column("SELECT COUNT(*) FROM mailbox_archive"); }
};

TEST_F(Records, AnOwnerIsTheOwnerOfAFileTree) {
  const auto bob = brisq_panel::FindOwner("bob");
  const mgr_file::safe::Owner& owner = *bob;
  EXPECT_EQ(1001u, owner.OwnerUid());
  EXPECT_EQ(1001u, owner.OwnerGid());
  EXPECT_EQ(Home(), owner.OwnerHome());
}

TEST_F(Records, TheStockIsOneForTheProcess) {
  EXPECT_EQ(&brisq_db::GetCache(), &brisq_db::GetCache());
  mgr_db::CustomTable* table = brisq_db::GetCache().Get(typeid(brisq_db::EmailTable).name());
  EXPECT_NE(nullptr, dynamic_cast<brisq_db::EmailTable*>(table));
  brisq_db::GetCache().Put(table);
}

// What the classes say of their tables to make runs over many rows cheap.
TEST_F(Records, AKeyIsUniqueAndNeverNull) {
  for (const char* type :
       {typeid(brisq_db::EmailTable).name(), typeid(brisq_db::EmailDomainTable).name()}) {
    SCOPED_TRACE(type);
    mgr_db::CustomTable* const table = brisq_db::GetCache().Get(type);
    std::string columns;
    for (const std::size_t place : table->Key()) {
      const std::string& name = table->Fields()[place]->name();
      columns += (columns.empty() ? "" : " ") + name;
      EXPECT_EQ("1", Column("SELECT \"notnull\" FROM pragma_table_info('" + table->TableName() +
                            "') WHERE name = '" + name + "'"));
    }
    EXPECT_EQ(columns, Column("SELECT i.name FROM pragma_index_list('" + table->TableName() +
                              "') AS l JOIN pragma_index_info(l.name) AS i"
                              " WHERE l.\"unique\" = 1 AND l.origin = 'u'"));
    brisq_db::GetCache().Put(table);
  }
}

TEST_F(Records, NothingDependsOnTheMark) {
  const brisq_db::EmailTable table;
  EXPECT_TRUE(table.IsMark("tag"));
  EXPECT_FALSE(table.IsMark("used"));
  EXPECT_EQ("", Column("SELECT i.name FROM pragma_index_list('mailboxes') AS l"
                       " JOIN pragma_index_info(l.name) AS i WHERE i.name = 'tag'"));
  EXPECT_EQ("", Column("SELECT \"from\" FROM pragma_foreign_key_list('mailboxes')"
                       " WHERE \"from\" = 'tag'"));
  EXPECT_EQ("", Column("SELECT name FROM sqlite_master WHERE type = 'trigger'"));
}

TEST_F(Records, TheSchemaKeepsReferencesAndUniqueness) {
  const auto refused = [](const std::string& sql) {
    return ErrorOf([&] { mgr_db::ThreadConnection()->Change(sql); }).type();
  };
  EXPECT_EQ("db", refused("DELETE FROM owners"));
  EXPECT_EQ("db", refused("INSERT INTO domains (name, owner, active, cert, key) "
                          "VALUES ('x.org', 99, 'on', '', '')"));
  EXPECT_EQ("exists", refused("INSERT INTO domains (name, owner, active, cert, key) "
                              "VALUES ('example.org', 1, 'on', '', '')"));
  EXPECT_EQ("db", refused("UPDATE owners SET uid = 0"));
  AddRows(1);
  EXPECT_EQ("exists", ErrorOf([&] { AddRows(1); }).type());
  EXPECT_EQ("db", refused("DELETE FROM domains"));
}

TEST_F(Records, ASweepTakesUntaggedActiveRowsAndKeepsThemInTheArchive) {
  AddRows(5);
  AddRows(2, "off", "b");
  Tag("name IN ('a0', 'a1')", -5);
  Sweep("tag != -5 AND active = 'on'");
  EXPECT_EQ("a0 a1 b0 b1", Column("SELECT name FROM mailboxes ORDER BY name"));
  EXPECT_EQ("a2 a3 a4", Column("SELECT name FROM mailbox_archive ORDER BY name"));
  EXPECT_EQ("swept", Column("SELECT DISTINCT reason FROM mailbox_archive"));
  EXPECT_EQ("example.org", Column("SELECT DISTINCT domain FROM mailbox_archive"));
  EXPECT_EQ("bob", Column("SELECT DISTINCT owner FROM mailbox_archive"));
}

TEST_F(Records, ASweepIsLimitedByShareAndNumber) {
  struct Case {
    const char* name;
    int rows;
    int taken;
    const char* limit;
    bool refused;
  };
  const Case cases[] = {
      {"ten of ten", 10, 10, "", false},
      {"eleven of eleven", 11, 11, "", true},
      {"30 percent", 40, 12, "", false},
      {"a little more", 40, 13, "", true},
      {"other limit", 40, 13, "50", false},
      {"no sweep at all", 40, 11, "0", true},
      {"a limit that is no number", 40, 13, "many", true},
      {"all of many", 40, 40, "100", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    mgr_db::ThreadConnection()->Change("DELETE FROM mailboxes");
    mgr_db::ThreadConnection()->Change("DELETE FROM mailbox_archive");
    mgr_cf::SetParam("EmailSweepLimit", c.limit);
    AddRows(c.rows);
    Tag("id NOT IN (SELECT id FROM mailboxes ORDER BY id LIMIT " + std::to_string(c.taken) + ")",
        7);
    const auto error = ErrorOf([] { Sweep("tag != 7 AND active = 'on'"); });
    EXPECT_EQ(c.refused ? "limit" : "none", error.type());
    EXPECT_EQ(std::to_string(c.refused ? c.rows : c.rows - c.taken), Rows());
    EXPECT_EQ(std::to_string(c.refused ? 0 : c.taken), Archived());
  }
}

TEST_F(Records, InactiveRowsDoNotCountForTheLimit) {
  AddRows(100, "off", "b");
  AddRows(20);
  EXPECT_EQ(
      "limit: refresh: 20 of 20 active mailboxes would be swept, more than "
      "EmailSweepLimit allows; \"refresh --sweep\" does it all the same",
      TextOf([] { Sweep("tag != 7 AND active = 'on'"); }));
}

TEST_F(Records, APermitLiftsTheLimit) {
  AddRows(20);
  {
    const brisq_panel::SweepPermit permit;
    Sweep("tag != 7 AND active = 'on'");
  }
  EXPECT_EQ("0", Rows());
  EXPECT_EQ("20", Archived());
}

TEST_F(Records, AnOrInTheConditionStaysInItsBrackets) {
  AddRows(3);
  const brisq_panel::RefreshWatch watch(2);
  Sweep("tag = 99 OR active = 'on'");
  EXPECT_EQ("a2", Column("SELECT name FROM mailboxes"));
}

TEST_F(Records, ASweepInsideARequestIsItsOwn) {
  AddRows(3);
  {
    Request request("test");
    Sweep("tag != 7");
    EXPECT_EQ("0", Rows());
  }
  EXPECT_EQ("3", Rows());
  EXPECT_EQ("0", Archived());
}

// Hashing may follow a refresh's sweep: nobody else shall wait for the database meanwhile.
TEST_F(Records, ASweepOfNothingMakesDurableWhatWasChangedBefore) {
  AddRows(1);
  mgr_db::GroupedChanges group;
  Tag("1", 7);
  Sweep("tag != 7");
  std::string seen;
  std::string error;
  const auto look_and_change = [&] {
    seen = mgr_db::ThreadConnection()->Query("SELECT tag FROM mailboxes", {}, 1).front().front();
    mgr_db::ThreadConnection()->Change("UPDATE mailboxes SET tag = 8");
  };
  std::jthread([&] { error = ErrorOf(look_and_change).type(); }).join();
  EXPECT_EQ("none", error);
  EXPECT_EQ("7", seen);
  EXPECT_EQ("8", Column("SELECT tag FROM mailboxes"));
}

TEST_F(Records, ASweepThatFailsHalfWayLeavesNothing) {
  AddRows(3);
  mgr_db::ThreadConnection()->Change(
      "CREATE TRIGGER no_delete BEFORE DELETE ON mailboxes BEGIN SELECT RAISE(ABORT, 'no'); END");
  EXPECT_EQ("db", ErrorOf([] { Sweep("tag != 7"); }).type());
  EXPECT_EQ("3", Rows());
  EXPECT_EQ("0", Archived());
}

}  // namespace
