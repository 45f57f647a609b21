#include "panel/line_saves.h"

#include "framework/config_file.h"
#include "framework/doubts.h"
#include "framework/request.h"
#include "panel/password_line.h"
#include "tests/support/sys_fault.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using brisq_panel::LineSaves;
using brisq_panel::StoreHash;

class LineSavesTest : public panel_test::PanelTest {
 protected:
  LineSavesTest() {
    mgr_cf::SetPath("dovecot-passwd", dir_ / "passwd");
    dir_.Write("passwd", kBefore);
  }
  const std::string kBefore = "a@x.org::1:1::/a:::\nb@x.org::1:1::/b:::\n";
};

TEST_F(LineSavesTest, WithoutAScopeACallIsMadeAtOnce) {
  bool called = false;
  LineSaves::WhenSaved([&] { called = true; });
  EXPECT_TRUE(called);
  EXPECT_FALSE(LineSaves::Active());
}

TEST_F(LineSavesTest, ACallWaitsForTheSaveAndWhatItPostsIsSavedToo) {
  LineSaves saves;
  EXPECT_TRUE(LineSaves::Active());
  StoreHash("a@x.org", "{X}one");
  std::string seen;
  LineSaves::WhenSaved([&] {
    seen = dir_.Read("passwd");
    StoreHash("b@x.org", "{X}two");
  });
  EXPECT_EQ(kBefore, dir_.Read("passwd"));
  saves.Save();
  EXPECT_EQ("a@x.org:{X}one:1:1::/a:::\nb@x.org::1:1::/b:::\n", seen);
  EXPECT_EQ("a@x.org:{X}one:1:1::/a:::\nb@x.org:{X}two:1:1::/b:::\n", dir_.Read("passwd"));
}

TEST_F(LineSavesTest, AnInnerScopeDoesNothingOfItsOwn) {
  LineSaves outer;
  bool called = false;
  {
    LineSaves inner;
    StoreHash("a@x.org", "{X}one");
    LineSaves::WhenSaved([&] { called = true; });
    inner.Save();
  }
  EXPECT_FALSE(called);
  EXPECT_EQ(kBefore, dir_.Read("passwd"));
  outer.Save();
  EXPECT_TRUE(called);
}

TEST_F(LineSavesTest, AnErrorOfACallIsThatOfTheSave) {
  LineSaves saves;
  LineSaves::WhenSaved([] { throw mgr_err::Error("email", "doveadm", "no"); });
  EXPECT_EQ("email: doveadm: no", panel_test::TextOf([&] { saves.Save(); }));
  EXPECT_EQ("none", panel_test::ErrorOf([&] { saves.Save(); }).type()) << "told once";
}

TEST_F(LineSavesTest, CallsOfAScopeThatEndsWithoutASaveAreDropped) {
  bool called = false;
  {
    const LineSaves saves;
    LineSaves::WhenSaved([&] { called = true; });
  }
  EXPECT_FALSE(called);
  EXPECT_FALSE(LineSaves::Active());
}

// The directory can't be synced: the file is in place, but may not outlive a power failure.
TEST_F(LineSavesTest, ASaveInDoubtIsNoError) {
  support::SysFault fault;
  Request request("test");
  LineSaves saves;
  StoreHash("a@x.org", "{X}one");
  std::size_t syncs = 0;
  fault.OnCall([&](std::string_view call, std::size_t) {
    if (call == "fsync" && ++syncs == 2) {
      fault.FailCall("fsync", EIO);
    }
  });
  EXPECT_EQ("none", panel_test::ErrorOf([&] { saves.Save(); }).type());
  EXPECT_EQ("a@x.org:{X}one:1:1::/a:::\nb@x.org::1:1::/b:::\n", dir_.Read("passwd"));
  request.Commit();
  EXPECT_EQ(1u, doubts::Take().size());
  log_.ExpectError(dir_ / "passwd");
}

}  // namespace
