#include "panel/owners.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "framework/safe_way.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using brisq_panel::AddOwner;
using brisq_panel::OwnerInfo;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class Owners : public panel_test::PanelTest {
 protected:
  static struct stat StateOf(const std::string& path) {
    struct stat state {};
    EXPECT_EQ(0, ::lstat(path.c_str(), &state)) << path;
    return state;
  }
};

TEST_F(Owners, AnAddedOwnerIsListedAndShown) {
  AddOwner({"bob", 1001, 1002, Home()});
  AddOwner({"alice", 1003, 1003, dir_ / "home/alice"});
  const OwnerInfo bob = brisq_panel::ShowOwner("bob");
  EXPECT_EQ("bob", bob.name);
  EXPECT_EQ(1001, bob.uid);
  EXPECT_EQ(1002, bob.gid);
  EXPECT_EQ(Home(), bob.home);
  const auto owners = brisq_panel::ListOwners();
  ASSERT_EQ(2u, owners.size());
  EXPECT_EQ("alice", owners[0].name);
  EXPECT_EQ("bob", owners[1].name);
}

TEST_F(Owners, AMissingHomeIsMadeForTheOwner) {
  const auto added = AddOwner({"bob", 1001, 1002, dir_ / "a/b/bob"});
  EXPECT_THAT(added.notes, ElementsAre("home directory " + (dir_ / "a/b/bob") + " made"));
  const struct stat home = StateOf(dir_ / "a/b/bob");
  EXPECT_EQ(0750u, home.st_mode & 07777u);
  EXPECT_EQ(1001u, home.st_uid);
  EXPECT_EQ(1002u, home.st_gid);
  for (const char* parent : {"a", "a/b"}) {
    SCOPED_TRACE(parent);
    const struct stat state = StateOf(dir_ / parent);
    EXPECT_EQ(0755u, state.st_mode & 07777u);
    EXPECT_EQ(0u, state.st_uid);
    EXPECT_EQ(0u, state.st_gid);
  }
}

TEST_F(Owners, AHomeThatIsThereIsLeftAsItIs) {
  dir_.MakeFolder("home/bob");
  ASSERT_EQ(0, ::chown(Home().c_str(), 1001, 1001));
  ASSERT_EQ(0, ::chmod(Home().c_str(), 0711));
  EXPECT_THAT(AddOwner({"bob", 1001, 1001, Home()}).notes, IsEmpty());
  EXPECT_EQ(0711u, StateOf(Home()).st_mode & 07777u);
}

TEST_F(Owners, AHomeOfSomebodyElseIsReported) {
  dir_.MakeFolder("home/bob");
  ASSERT_EQ(0, ::chown(Home().c_str(), 1234, 1234));
  EXPECT_THAT(AddOwner({"bob", 1001, 1001, Home()}).notes,
              ElementsAre(HasSubstr("belongs to uid 1234")));
  EXPECT_EQ(1234u, StateOf(Home()).st_uid);
}

// The folders of its mailboxes are made for the owner.
TEST_F(Owners, AHomeOfRootIsFine) {
  dir_.MakeFolder("home/bob");
  EXPECT_THAT(AddOwner({"bob", 1001, 1001, Home()}).notes, IsEmpty());
  EXPECT_NO_THROW(safe_way::Open(Home(), 1001)) << "no mailbox can be made in it";
  EXPECT_EQ(0u, StateOf(Home()).st_uid);
}

// Eve could put a link there while root makes bob's home, or any time later.
TEST_F(Owners, NoHomeIsMadeInTheHomeOfAnotherUser) {
  const std::string eves = dir_.MakeFolder("home/eve");
  ASSERT_EQ(0, ::chown(eves.c_str(), 1234, 1234));
  const std::string outside = dir_.MakeFolder("outside");
  ASSERT_EQ(0, ::symlink(outside.c_str(), (eves + "/x").c_str()));
  for (const std::string place : {"/bob", "/x/bob", "/y/bob"}) {
    SCOPED_TRACE(place);
    const std::string text = panel_test::TextOf([&] {
      AddOwner({"bob", 1001, 1001, eves + place});
    });
    EXPECT_EQ("file: " + eves + ": not safe: belongs to uid 1234 instead of 0", text);
  }
  EXPECT_TRUE(std::filesystem::is_empty(outside));
  ASSERT_EQ(0, ::mkdir((outside + "/bob").c_str(), 0700));
  ASSERT_EQ(0, ::chown((outside + "/bob").c_str(), 1001, 1001));
  EXPECT_THAT(AddOwner({"bob", 1001, 1001, eves + "/x/bob"}).notes,
              ElementsAre(HasSubstr("no mailbox can be made in")));
}

TEST_F(Owners, AHomeThatIsNoDirectoryIsRefused) {
  dir_.Write("home/bob", "");
  EXPECT_EQ("file: " + Home() + ": is no directory", panel_test::TextOf([&] {
              AddOwner({"bob", 1001, 1001, Home()});
            }));
  dir_.Write("file", "");
  EXPECT_EQ("file", panel_test::ErrorOf([&] {
                      AddOwner({"bob", 1001, 1001, dir_ / "file/bob"});
                    }).type());
  EXPECT_THAT(brisq_panel::ListOwners(), IsEmpty());
}

TEST_F(Owners, ATakenNameIsRefusedAndTheOwnerStays) {
  AddBob();
  EXPECT_EQ("exists: owner: bob", panel_test::TextOf([&] {
              AddOwner({"bob", 5, 5, dir_ / "home/other"});
            }));
  EXPECT_EQ(1001, brisq_panel::ShowOwner("bob").uid);
  EXPECT_FALSE(std::filesystem::exists(dir_ / "home/other"));
}

TEST_F(Owners, NothingIsTouchedWhenAValueIsRefused) {
  struct Case {
    const char* name;
    OwnerInfo owner;
    const char* object;
  };
  const Case cases[] = {
      {"name", {"b:b", 1001, 1001, Home()}, "owner name"},
      {"root's uid", {"bob", 0, 1001, Home()}, "uid"},
      {"root's gid", {"bob", 1001, 0, Home()}, "gid"},
      {"negative uid", {"bob", -5, 1001, Home()}, "uid"},
      {"home", {"bob", 1001, 1001, Home() + "/../x"}, "home"},
      {"home with a line break", {"bob", 1001, 1001, Home() + "\n"}, "home"},
      {"SQL", {"bob');--", 1001, 1001, Home()}, "owner name"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const auto error = panel_test::ErrorOf([&] { AddOwner(c.owner); });
    EXPECT_EQ("value", error.type());
    // By the name, once that is good.
    const std::string whose = c.object == std::string("owner name") ? "" : "owner bob: ";
    EXPECT_EQ(whose + c.object, error.object());
    EXPECT_THAT(brisq_panel::ListOwners(), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(dir_ / "home"));
  }
}

TEST_F(Owners, NoRowStaysWhenTheHomeCantBeMade) {
  // Nobody, root included, can make a directory in the system's table of processes.
  const auto error = panel_test::ErrorOf([] {
    AddOwner({"bob", 1001, 1001, "/proc/no/such/home"});
  });
  EXPECT_EQ("file", error.type());
  EXPECT_THAT(error.value(), Not(HasSubstr("made")));
  EXPECT_THAT(brisq_panel::ListOwners(), IsEmpty());
}

TEST_F(Owners, AMissingOwnerIsNamed) {
  EXPECT_EQ("missed: owner: nobody", panel_test::TextOf([] { brisq_panel::ShowOwner("nobody"); }));
  EXPECT_EQ("value", panel_test::ErrorOf([] { brisq_panel::ShowOwner("no body"); }).type());
}

}  // namespace
