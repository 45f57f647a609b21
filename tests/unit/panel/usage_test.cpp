#include "panel/usage.h"

#include "framework/database.h"
#include "framework/utc.h"
#include "panel/domains.h"
#include "panel/mailboxes.h"
#include "panel/panel_state.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using brisq_panel::ShowUsage;
using panel_test::TextOf;

class UsageTest : public panel_test::PanelTest {
 protected:
  UsageTest() {
    AddBobsDomain();
    brisq_panel::AddDomain("other.org", "bob");
    email::RegisterPop3(&mail_);
    for (const char* address : {"alice@example.org", "albert@other.org", "bob@example.org"}) {
      brisq_panel::AddMailbox({address, "secret", "100"});
    }
    mgr_db::ThreadConnection()->Change("UPDATE mailboxes SET used = id");
  }
  static std::string Matching(const std::string& pattern) {
    std::string text;
    for (const auto& row : ShowUsage(pattern).rows) {
      text += (text.empty() ? "" : " ") + row.address;
    }
    return text;
  }
};

TEST_F(UsageTest, FiguresAreThoseOfTheTable) {
  const auto usage = ShowUsage("bob@example.org");
  ASSERT_EQ(1u, usage.rows.size());
  EXPECT_EQ("bob@example.org", usage.rows[0].address);
  EXPECT_EQ(3, usage.rows[0].used_mb);
  EXPECT_EQ(100, usage.rows[0].quota_mb);
}

TEST_F(UsageTest, PatternsChooseMailboxes) {
  struct Case {
    const char* pattern;
    const char* addresses;
  };
  const Case cases[] = {
      {"", "alice@example.org bob@example.org albert@other.org"},
      {"*", "alice@example.org bob@example.org albert@other.org"},
      {"al*", "alice@example.org albert@other.org"},
      {"AL*@EXAMPLE.org", "alice@example.org"},
      {"b?b@*", "bob@example.org"},
      {"*@none.org", ""},
      {"Alice@Example.ORG", "alice@example.org"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.pattern);
    EXPECT_EQ(c.addresses, Matching(c.pattern));
  }
}

TEST_F(UsageTest, WhatIsNoPatternIsRefused) {
  EXPECT_EQ("missed: mailbox: x@example.org", TextOf([] { ShowUsage("x@example.org"); }));
  EXPECT_EQ("value: address: must be LOCALPART@DOMAIN", TextOf([] { ShowUsage("x"); }));
  EXPECT_EQ("value: pattern: '[' not allowed", TextOf([] { ShowUsage("[ab]*"); }));
  EXPECT_EQ("value: pattern: line break not allowed", TextOf([] { ShowUsage("*\n"); }));
}

TEST_F(UsageTest, TheAgeIsThatOfTheLastGoodRefresh) {
  EXPECT_EQ("", ShowUsage("").as_of);
  EXPECT_EQ(-1, ShowUsage("").age_seconds);
  const std::time_t hour_ago = std::time(nullptr) - 3600;
  brisq_panel::KeepValue(brisq_panel::kFiguresAsOf, UtcText(hour_ago));
  const auto usage = ShowUsage("");
  EXPECT_EQ(UtcText(hour_ago), usage.as_of);
  EXPECT_GE(usage.age_seconds, 3600);
  EXPECT_LT(usage.age_seconds, 3700);
}

TEST_F(UsageTest, TheProblemOfTheLastRefreshIsSaid) {
  EXPECT_EQ("", ShowUsage("").quota_problem);
  brisq_panel::KeepValue(brisq_panel::kQuotaProblem, "no such plugin");
  EXPECT_EQ("no such plugin", ShowUsage("").quota_problem);
}

}  // namespace
