#include "panel/object_state.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

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

TEST_F(ObjectStateTest, ALineIsItsColumns) {
  Use(true);
  Add("alice");
  const auto line = StateOf("line", "alice@example.org");
  EXPECT_EQ("{CLEAR}secret", line.at("hash"));
  EXPECT_EQ(Home() + "/mail/example.org/alice", line.at("home"));
  EXPECT_EQ(8u, line.size());
}

TEST_F(ObjectStateTest, AccessIsModeAndOwnerAndALinkIsNotFollowed) {
  const std::string path = dir_.Write("file", "");
  ASSERT_EQ(0, ::chmod(path.c_str(), 04711));
  ASSERT_EQ(0, ::lchown(path.c_str(), 5, 6));
  ASSERT_EQ(0, ::chmod(path.c_str(), 04711));
  const auto state = StateOf("access", path);
  EXPECT_THAT(state,
              UnorderedElementsAre(Pair("mode", "4711"), Pair("uid", "5"), Pair("gid", "6")));
  EXPECT_EQ(state, brisq_panel::AccessValues(brisq_panel::AccessIn(state)));
  std::filesystem::create_symlink(path, dir_ / "link");
  EXPECT_EQ("0777", StateOf("access", dir_ / "link").at("mode"));
}

TEST_F(ObjectStateTest, WhatDoesNotExistIsEmpty) {
  Use(true);
  EXPECT_THAT(StateOf("line", "nobody@example.org"), IsEmpty());
  EXPECT_THAT(StateOf("access", dir_ / "nothing"), IsEmpty());
  EXPECT_THAT(StateOf("mailbox", "nobody@example.org"), IsEmpty());
  EXPECT_THAT(StateOf("mailbox", "nobody@example.net"), IsEmpty());
  EXPECT_THAT(StateOf("domain", "example.net"), IsEmpty());
  EXPECT_THAT(StateOf("owner", "carol"), IsEmpty());
}

}  // namespace
