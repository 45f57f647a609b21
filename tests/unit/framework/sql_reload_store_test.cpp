#include "framework/sql_reload_store.h"

#include <memory>

#include "framework/database.h"
#include "framework/request.h"
#include "mgr_err.h"
#include "tests/support/temp_dir.h"
#include "tests/unit/framework/reload_store_contract.h"

namespace {

struct InDatabase {
  InDatabase() {
    mgr_db::OpenDatabase(directory / "panel.db");
    store = std::make_unique<reloader::SqlReloadStore>();
  }
  ~InDatabase() { mgr_db::CloseDatabase(); }
  InDatabase(const InDatabase&) = delete;
  InDatabase& operator=(const InDatabase&) = delete;

  support::TempDir directory;
  std::unique_ptr<reloader::ReloadStore> store;
};

INSTANTIATE_TYPED_TEST_SUITE_P(Database, ReloadStoreContract, InDatabase);

TEST(SqlReloadStore, KeepsEverythingForTheNextProcess) {
  InDatabase database;
  database.store->Add({0, "g", "a", true, 5});
  reloader::ReloadRun run;
  run.group = "g";
  database.store->Begin(run);
  mgr_db::CloseDatabase();
  mgr_db::OpenDatabase(database.directory / "panel.db");
  reloader::SqlReloadStore again;
  EXPECT_EQ(1u, again.Requests().size());
  EXPECT_EQ(1u, again.Runs("g").size());
}

TEST(SqlReloadStore, RequestInsideOfARequestIsPartOfIt) {
  InDatabase database;
  {
    Request request("lost");
    database.store->Add({0, "g", "a", false, 5});
    EXPECT_EQ(1u, database.store->Requests().size());
  }
  EXPECT_TRUE(database.store->Requests().empty());
  Request request("kept");
  database.store->Add({0, "g", "a", false, 5});
  request.Commit();
  EXPECT_EQ(1u, database.store->Requests().size());
}

TEST(SqlReloadStore, FailsWithoutADatabase) {
  InDatabase database;
  mgr_db::CloseDatabase();
  EXPECT_THROW(database.store->Add({0, "g", "a", false, 5}), mgr_err::Error);
  EXPECT_THROW(database.store->Requests(), mgr_err::Error);
}

}  // namespace
