#include "panel/homes.h"

#include "framework/database.h"
#include "panel/mailbox_changes.h"
#include "panel/mailbox_removal.h"
#include "panel/mailboxes.h"
#include "tests/unit/panel/passwd_file_backend.h"

namespace brisq_panel {
namespace {

using panel_test::TextOf;

// al's home is Home() + "/mail/example.org/al".
class HomesTest : public panel_test::FilePanelTest {
 protected:
  HomesTest() { Add("al"); }
  std::string AlsHome() const { return Home() + "/mail/example.org/al"; }
};

TEST_F(HomesTest, HomesThatWouldMixAreRefused) {
  struct Case {
    const char* name;
    std::string home;
    const char* rule;  // empty: allowed
  };
  const Case cases[] = {
      {"the same", AlsHome(), "is already that of al@example.org"},
      {"inside", AlsHome() + "/x", "lies in the home of al@example.org"},
      {"deep inside", AlsHome() + "/x/y/z", "lies in the home of al@example.org"},
      {"around", Home() + "/mail/example.org", "holds the home of al@example.org"},
      {"far around", Home(), "holds the home of al@example.org"},
      {"a longer name", AlsHome() + "x", ""},
      {"a name with a character before the slash", AlsHome() + "-x", ""},
      {"a shorter name", AlsHome().substr(0, AlsHome().size() - 1), ""},
      {"beside", Home() + "/mail/example.org/bo", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string error = TextOf([&] { CheckHomeIsFree(c.home, 0); });
    EXPECT_EQ(*c.rule ? "value: home: " + std::string(c.rule) : "none", error);
  }
}

// Rows of before the rule may lie in each other.
TEST_F(HomesTest, OfSeveralHomesAroundTheNearestIsNamed) {
  Add("bo");
  const auto move = [](const std::string& name, const std::string& home) {
    mgr_db::ThreadConnection()->Change("UPDATE mailboxes SET home = :v1 WHERE name = :v2",
                                       {home, name});
  };
  struct Case {
    const char* name;
    const char* near;
    const char* far;
  };
  for (const Case& c : {Case{"the older row", "al", "bo"}, Case{"the younger row", "bo", "al"}}) {
    SCOPED_TRACE(c.name);
    move(c.near, Home() + "/mail/example.org");
    move(c.far, Home());
    EXPECT_EQ("value: home: lies in the home of " + std::string(c.near) + "@example.org",
              TextOf([&] { CheckHomeIsFree(AlsHome(), 3); }));
  }
}

TEST_F(HomesTest, AMailboxsOwnHomeDoesNotCount) {
  EXPECT_EQ("none", TextOf([&] { CheckHomeIsFree(AlsHome(), 1); }));
  EXPECT_NE("none", TextOf([&] { CheckHomeIsFree(AlsHome(), 2); }));
}

TEST_F(HomesTest, AddingChangingAndRestoringKeepHomesApart) {
  const std::string inside = AlsHome() + "/x";
  EXPECT_EQ("value: mailbox bo@example.org: home: lies in the home of al@example.org", TextOf([&] {
              AddMailbox({"bo@example.org", "secret", {}, inside});
            }));
  Add("bo");
  EXPECT_EQ("value: mailbox bo@example.org: home: is already that of al@example.org",
            TextOf([&] { SetMailboxes({"bo@example.org"}, {.home = AlsHome()}); }));
  DeleteMailboxes({"al@example.org"});
  SetMailboxes({"bo@example.org"}, {.home = AlsHome()});
  EXPECT_EQ("value: mailbox al@example.org: home: is already that of bo@example.org",
            TextOf([] { RestoreMailboxes({"al@example.org"}); }));
}

}  // namespace
}  // namespace brisq_panel
