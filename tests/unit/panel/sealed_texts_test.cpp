#include "panel/sealed_texts.h"

#include "framework/database.h"
#include "framework/job_table.h"
#include "framework/journal.h"
#include "panel/records.h"
#include "tests/unit/panel/panel_fixture.h"

namespace brisq_panel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SealedTextsTest : public panel_test::PanelTest {
 protected:
  ~SealedTextsTest() override { journal::SetFolder(""); }

  static void Sql(const std::string& sql) { mgr_db::ThreadConnection()->Change(sql); }

  static std::vector<std::string> Latest() {
    std::vector<std::string> texts;
    for (const SealedText& sealed : LatestSealedTexts()) {
      texts.push_back(sealed.where + "=" + sealed.text);
    }
    return texts;
  }

  static void AddJob(const std::string& entry, const std::string& sealed) {
    job_table::Add({0, entry, "mailbox add", "root", "2026-01-31T10:00:00Z", job_table::kDone, "x",
                    sealed, 0});
  }
};

TEST_F(SealedTextsTest, AnEmptyInstanceHasSealedNothing) {
  EXPECT_FALSE(AnySealedText());
  EXPECT_THAT(SealedPasswords(), IsEmpty());
  EXPECT_THAT(Latest(), IsEmpty());
}

TEST_F(SealedTextsTest, WhatHoldsNoSecretIsNotCounted) {
  AddJob("a", "");
  journal::SetFolder(dir_ / "journal");
  journal::Entry entry("0123456789abcdef", {"request", {{"name", "x"}}});
  entry.Write({{"swap", {{"path", "/x"}}}}, true);
  EXPECT_FALSE(AnySealedText());
}

TEST_F(SealedTextsTest, OfJobsTheLatestThatIsSealedCounts) {
  AddJob("a", "s1:old");
  AddJob("b", "s1:new");
  AddJob("c", "");
  EXPECT_TRUE(AnySealedText());
  EXPECT_THAT(Latest(), ElementsAre("what undoes the latest job=s1:new"));
}

TEST_F(SealedTextsTest, EachEntryOfTheJournalCounts) {
  journal::SetFolder(dir_ / "journal");
  journal::Entry entry("0123456789abcdef", {"request", {{"name", "x"}}});
  entry.Write({{"line", {{"sealed", "s1:one"}}}, {"line", {{"sealed", "s1:two"}}}, {"dir", {}}},
              true);
  EXPECT_TRUE(AnySealedText());
  EXPECT_THAT(Latest(), ElementsAre("the journal's entry 0123456789abcdef=s1:two"));
}

TEST_F(SealedTextsTest, ArchivedPasswordsAndHashesCountByThemselves) {
  const std::string columns =
      "INSERT INTO mailbox_archive (name, domain, owner, password, hash, home, quota, used, active,"
      " reason, archived) VALUES ('a', 'b', 'c', ";
  Sql(columns + "'s1:p', '', '', '', 0, 'on', 'deleted', '')");
  Sql(columns + "'', 's1:h', '', '', 0, 'on', 'deleted', '')");
  EXPECT_TRUE(AnySealedText());
  EXPECT_THAT(Latest(),
              ElementsAre("the latest archived password=s1:p", "the latest archived hash=s1:h"));
}

TEST_F(SealedTextsTest, EveryKeptPasswordIsTold) {
  AddBobsDomain();
  for (const char* name : {"a", "b", "c"}) {
    const auto mailbox = Table<brisq_db::EmailTable>();
    mailbox->New();
    mailbox->name = name;
    mailbox->domain = 1;
    mailbox->owner = 1;
    if (*name != 'c') {
      mailbox->password.SetStored("s1:x");
    }
    mailbox->Post();
  }
  EXPECT_TRUE(AnySealedText());
  EXPECT_EQ(2u, SealedPasswords().size());
}

}  // namespace
}  // namespace brisq_panel
