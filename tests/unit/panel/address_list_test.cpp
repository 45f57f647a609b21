#include "panel/address_list.h"

#include "email.h"
#include "panel/mailbox_changes.h"
#include "panel/mailbox_removal.h"
#include "panel/mailboxes.h"
#include "tests/unit/panel/passwd_file_backend.h"

namespace brisq_panel {
namespace {

using panel_test::ErrorOf;
using panel_test::TextOf;
using testing::ElementsAre;

TEST(AddressList, IsInStoredFormAndInTheOrderGiven) {
  std::vector<std::string> names;
  ForEachAddress(ParseAddresses({"B@Example.org", "a@example.org"}),
                 [&](const Address& address) { names.push_back(address.Full()); });
  EXPECT_THAT(names, ElementsAre("b@example.org", "a@example.org"));
  EXPECT_TRUE(ParseAddresses({}).empty());
}

TEST(AddressList, SaysWhichOneIsRefused) {
  struct Case {
    const char* name;
    std::vector<std::string> texts;
    const char* text;
  };
  const Case cases[] = {
      {"the only one", {"bob"}, "value: address: must be LOCALPART@DOMAIN"},
      {"the second",
       {"a@x.org", "bob"},
       "value: address 2 of 2: address: must be LOCALPART@DOMAIN"},
      {"the first",
       {"a b@x.org", "bob", "c@x.org"},
       "value: address 1 of 3: mailbox name: only letters, digits, '.', '-' and '_' allowed"},
      {"one twice", {"a@x.org", "b@x.org", "a@x.org"}, "value: mailbox: a@x.org is given twice"},
      {"one in two forms", {"a@x.org", "A@X.org"}, "value: mailbox: a@x.org is given twice"},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    EXPECT_EQ(one.text, TextOf([&] { ParseAddresses(one.texts); }));
  }
}

TEST(AddressList, ARefusalGetsTheNameThatItLacks) {
  struct Case {
    const char* name;
    mgr_err::Error error;
    const char* of_list;
    const char* of_object;
  };
  const Case cases[] = {
      {"a value", mgr_err::Error("value", "home", "bad"), "value: mailbox a@x.org: home: bad",
       "value: mailbox a@x.org: home: bad"},
      {"a limit without an object", mgr_err::Error("limit", "", "bad"),
       "limit: mailbox a@x.org: bad", "limit: mailbox a@x.org: bad"},
      {"what names it", mgr_err::Error("missed", "mailbox", "a@x.org"), "missed: mailbox: a@x.org",
       "missed: mailbox: a@x.org"},
      {"what names another thing", mgr_err::Error("missed", "domain", "x.org"),
       "missed: mailbox a@x.org: domain: x.org", "missed: domain: x.org"},
      {"a tool", email::Fail("doveadm", "no hash"), "email: mailbox a@x.org: doveadm: no hash",
       "email: doveadm: no hash"},
      {"a file that has lost its lines", mgr_err::Error("limit", "/users", "empty"),
       "limit: /users: empty", "limit: /users: empty"},
      {"what is nobody's own", mgr_err::Error("locked", "database", "busy"),
       "locked: database: busy", "locked: database: busy"},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    const auto fail = [&] { throw mgr_err::Error(one.error); };
    const auto listed = ErrorOf([&] {
      ForEachAddress({{"a", "x.org"}}, [&](const Address&) { fail(); });
    });
    EXPECT_STREQ(one.of_list, listed.what());
    EXPECT_EQ(one.error.report(), listed.report());
    EXPECT_EQ(one.of_object, TextOf([&] { InNameOf("mailbox", "a@x.org", fail); }));
  }
}

class AddressesOfCommands : public panel_test::FilePanelTest {};

TEST_F(AddressesOfCommands, OneThatIsGivenTwiceChangesNothing) {
  Add("al");
  const std::string before = Lines();
  const std::vector<std::string> twice = {"al@example.org", "AL@example.org"};
  const char* text = "value: mailbox: al@example.org is given twice";
  EXPECT_EQ(text, TextOf([&] { DeleteMailboxes(twice); }));
  EXPECT_EQ(text, TextOf([&] { SetMailboxes(twice, {.quota = "1G"}); }));
  EXPECT_EQ(before, Lines());
  EXPECT_EQ(1u, ListMailboxes().size());
}

}  // namespace
}  // namespace brisq_panel
