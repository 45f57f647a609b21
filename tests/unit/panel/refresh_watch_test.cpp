#include "panel/refresh_watch.h"

#include <thread>

#include "panel/file_stamps.h"
#include "panel/records.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using brisq_panel::RefreshWatch;
using testing::ElementsAre;
using testing::IsEmpty;

const ConfStamp kStamp = {true, 1, 2, 3, 4, 5};

TEST(RefreshWatch, CountsTheNamesOfAWalkUpToItsSweep) {
  RefreshWatch watch(9);
  RefreshWatch::SawName("early@example.org", true);  // before any file was looked at
  RefreshWatch::SawFile("/passwd", kStamp, true);
  RefreshWatch::SawName("a@example.org", true);
  RefreshWatch::SawName("foreign@example.net", false);
  RefreshWatch::SawSweep();
  RefreshWatch::SawName("a@example.org", true);  // the password work
  EXPECT_TRUE(watch.walked());
  EXPECT_EQ(2u, watch.lines());
  EXPECT_THAT(watch.unknown(), ElementsAre("foreign@example.net"));
  ASSERT_EQ(1u, watch.files().size());
  EXPECT_EQ("/passwd", watch.files()[0].path);
  EXPECT_TRUE(watch.files()[0].stamp == kStamp);
}

TEST(RefreshWatch, AnUnchangedFileIsNotWalked) {
  RefreshWatch watch(9);
  RefreshWatch::SawFile("/passwd", kStamp, false);
  RefreshWatch::SawName("a@example.org", true);
  EXPECT_FALSE(watch.walked());
  EXPECT_EQ(0u, watch.lines());
  EXPECT_EQ(1u, watch.figures()) << "names that have a figure";
}

TEST(RefreshWatch, OnlyItsOwnThreadIsWatched) {
  RefreshWatch watch(9);
  std::jthread([] { RefreshWatch::SawFile("/passwd", kStamp, true); }).join();
  EXPECT_THAT(watch.files(), IsEmpty());
}

TEST(RefreshWatch, ThereIsOneAtATime) {
  {
    RefreshWatch watch(9);
    EXPECT_EQ("internal", panel_test::ErrorOf([] { RefreshWatch second(9); }).type());
    RefreshWatch::SawFile("/passwd", kStamp, true);
    EXPECT_EQ(1u, watch.files().size()) << "the first one goes on";
  }
  RefreshWatch again(9);
  RefreshWatch::SawFile("/passwd", kStamp, true);
  EXPECT_EQ(1u, again.files().size());
}

TEST(RefreshWatch, YoungMailboxesAreLeftOutOfTheSweep) {
  EXPECT_EQ("", RefreshWatch::SweepLimit());
  RefreshWatch watch(42);
  EXPECT_EQ(" AND id <= 42", RefreshWatch::SweepLimit());
}

TEST(RefreshWatch, WithoutOneNothingHappens) {
  RefreshWatch::SawFile("/passwd", kStamp, true);
  RefreshWatch::SawName("a@example.org", false);
  RefreshWatch::SawSweep();
  RefreshWatch::SawPutOff();
}

TEST(RefreshWatch, WorkThatIsPutOffIsKnown) {
  RefreshWatch watch(9);
  EXPECT_FALSE(watch.put_off());
  RefreshWatch::SawPutOff();
  EXPECT_TRUE(watch.put_off());
}

class WatchedCalls : public panel_test::PanelTest {};

TEST_F(WatchedCalls, ThePanelsInterfacesReportToIt) {
  AddBobsDomain();
  dir_.Write("passwd", "x");
  RefreshWatch watch(9);
  std::string text;
  brisq_db::FileIsChanged(dir_ / "passwd", text);
  const auto mailbox = brisq_panel::Table<brisq_db::EmailTable>();
  const auto domain = brisq_panel::Table<brisq_db::EmailDomainTable>();
  email::FindByEmailName("nobody@example.org", mailbox, domain);
  mailbox->DbDelete("tag != 1 AND active = 'on'");
  email::FindByEmailName("nobody@example.org", mailbox, domain);
  EXPECT_TRUE(StampAt(dir_ / "passwd") == watch.files().at(0).stamp);
  EXPECT_TRUE(watch.walked());
  EXPECT_EQ(1u, watch.lines());
  EXPECT_THAT(watch.unknown(), ElementsAre("nobody@example.org"));
}

}  // namespace
