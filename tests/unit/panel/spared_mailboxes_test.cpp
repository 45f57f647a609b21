#include "panel/spared_mailboxes.h"

#include "framework/config_file.h"
#include "panel/mailbox_changes.h"
#include "panel/mailbox_removal.h"
#include "panel/mailboxes.h"
#include "panel/refresh.h"
#include "panel/refresh_lock.h"
#include "panel/refresh_watch.h"
#include "tests/support/stub_program.h"
#include "tests/unit/panel/passwd_file_backend.h"

namespace brisq_panel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class SparedMailboxesTest : public panel_test::FilePanelTest {
 protected:
  SparedMailboxesTest() {
    RefreshLock::SetFolder(dir_.path());
    mgr_cf::SetPath("dovecot-doveadm", support::WriteStub(dir_ / "doveadm", "exit 75"));
    for (const char* local : {"al", "bo", "cy"}) Add(local);
    whole_ = Lines();
  }
  static std::string Left() { return Column("SELECT name FROM mailboxes ORDER BY name"); }

  // The file with other text in the place of cy's line.
  void CutTo(const std::string& text) {
    dir_.Write("passwd", whole_.substr(0, whole_.find("cy@")) + text);
  }

  std::string whole_;
};

TEST_F(SparedMailboxesTest, ARefreshSweepsNoMailboxWhoseLineIsThereInAnyForm) {
  struct Case {
    const char* name;
    std::string text;
    bool stays;
  };
  const Case cases[] = {
      {"cut in the hash", "cy@example.org:{CLEAR}se", true},
      {"cut behind the name", "cy@example.org\n", true},
      {"in capitals, as a lookup takes it", "CY@Example.org:h\n", true},
      {"cut in the name", "cy@exam", false},
      {"commented out", "#cy@example.org:h\n", false},
      {"gone", "", false},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    CutTo(one.text);
    const RefreshReport report = Refresh(false);
    if (one.stays) {
      EXPECT_THAT(report.spared, ElementsAre(HasSubstr(path_ + ", line 3: ")));
      EXPECT_THAT(report.swept, IsEmpty());
      EXPECT_EQ("al bo cy", Left());
    } else {
      EXPECT_THAT(report.spared, IsEmpty());
      EXPECT_THAT(report.swept, ElementsAre("cy@example.org"));
      EXPECT_EQ("al bo", Left());
      RestoreMailboxes({"cy@example.org"});
    }
  }
}

TEST_F(SparedMailboxesTest, OthersAreSweptAllTheSame) {
  dir_.Write("passwd", "cy@example.org:h\nal@example.org" + std::string(":h:1:1::/h:::m\n"));
  const RefreshReport report = Refresh(true);
  EXPECT_THAT(report.swept, ElementsAre("bo@example.org"));
  EXPECT_EQ("al cy", Left());
}

TEST_F(SparedMailboxesTest, OneThatWouldNotBeSweptIsNotNamed) {
  SetMailboxes({"cy@example.org"}, {.active = false});
  dir_.Write("passwd", Lines() + "cy@example.org:h\nforeign@example.net:h\n");
  EXPECT_THAT(Refresh(false).spared, IsEmpty());
  EXPECT_EQ("al bo cy", Left());
}

TEST_F(SparedMailboxesTest, OutsideOfARefreshNoneIsSpared) {
  CutTo("cy@example.org:h\n");
  EXPECT_EQ("", SparedMailboxes("1 = 1"));
}

}  // namespace
}  // namespace brisq_panel
