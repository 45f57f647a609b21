#include "panel/object_state.h"

#include "panel/mailbox_changes.h"
#include "panel/records.h"
#include "tests/unit/panel/passwd_file_backend.h"

namespace {

using brisq_panel::StateOf;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

class ObjectStateTest : public panel_test::FilePanelTest {};

TEST_F(ObjectStateTest, AMailboxIsItsRowAndItsHash) {
  Use(true);
  Add("alice");
  EXPECT_THAT(
      StateOf("mailbox", "alice@example.org"),
      UnorderedElementsAre(Pair("owner", "bob"), Pair("home", Home() + "/mail/example.org/alice"),
                           Pair("quota", ""), Pair("active", "on"), Pair("kept password", ""),
                           Pair("hash", "{CLEAR}secret")));
}

TEST_F(ObjectStateTest, APasswordOfThePanelStaysSealed) {
  Use(false);
  Add("alice");
  const std::string kept = StateOf("mailbox", "alice@example.org").at("kept password");
  EXPECT_FALSE(kept.empty());
  EXPECT_EQ(std::string::npos, kept.find("secret"));
}

TEST_F(ObjectStateTest, AMailboxThatIsSwitchedOffHasNoHash) {
  Use(true);
  Add("alice");
  brisq_panel::SetMailboxes({"alice@example.org"}, {.active = false});
  EXPECT_EQ("", StateOf("mailbox", "alice@example.org").at("hash"));
  EXPECT_EQ("off", StateOf("mailbox", "alice@example.org").at("active"));
}

TEST_F(ObjectStateTest, DomainsAndOwnersAreTheirRows) {
  Use(true);
  EXPECT_THAT(StateOf("domain", "example.org"),
              UnorderedElementsAre(Pair("owner", "bob"), Pair("active", "on"), Pair("cert", ""),
                                   Pair("key", "")));
  EXPECT_THAT(StateOf("owner", "bob"),
              UnorderedElementsAre(Pair("uid", "1001"), Pair("gid", "1001"), Pair("home", Home())));
}

TEST_F(ObjectStateTest, WhatDoesNotExistIsEmpty) {
  Use(true);
  EXPECT_THAT(StateOf("mailbox", "nobody@example.org"), IsEmpty());
  EXPECT_THAT(StateOf("mailbox", "nobody@example.net"), IsEmpty());
  EXPECT_THAT(StateOf("domain", "example.net"), IsEmpty());
  EXPECT_THAT(StateOf("owner", "carol"), IsEmpty());
}

}  // namespace
