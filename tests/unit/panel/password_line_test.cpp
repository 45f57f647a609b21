#include "panel/password_line.h"

#include <filesystem>

#include "framework/config_file.h"
#include "framework/request.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using brisq_panel::StoredHash;
using brisq_panel::StoreHash;

class PasswordLine : public panel_test::PanelTest {
 protected:
  PasswordLine() {
    mgr_cf::SetPath("dovecot-passwd", dir_ / "passwd");
    dir_.Write("passwd",
               "# by hand\na@example.org:{X}hash:1:1::/h:::maildir:~/.maildir x=y:z\n"
               "b@example.org::1:1::/h:::\nshort@example.org:{X}no record\n");
  }
};

TEST_F(PasswordLine, TheHashOfALineIsFound) {
  EXPECT_EQ("{X}hash", StoredHash("a@example.org"));
  EXPECT_EQ("", StoredHash("b@example.org"));
  EXPECT_EQ(std::nullopt, StoredHash("c@example.org"));
  EXPECT_EQ(std::nullopt, StoredHash("short@example.org"));
}

TEST_F(PasswordLine, AStoredHashChangesItsColumnOnly) {
  StoreHash("a@example.org", "{Y}other");
  EXPECT_EQ(
      "# by hand\na@example.org:{Y}other:1:1::/h:::maildir:~/.maildir x=y:z\n"
      "b@example.org::1:1::/h:::\nshort@example.org:{X}no record\n",
      dir_.Read("passwd"));
}

TEST_F(PasswordLine, AWholeLineIsReadMadeChangedAndRemoved) {
  const auto line = brisq_panel::StoredLine("a@example.org");
  EXPECT_EQ(brisq_panel::ValuesOfLine("a@example.org:{X}hash:1:1::/h:::maildir:~/.maildir x=y:z"),
            line);
  EXPECT_EQ("{X}hash", line.at("hash"));
  EXPECT_EQ("maildir:~/.maildir x=y:z", line.at("mail"));
  EXPECT_TRUE(brisq_panel::StoredLine("c@example.org").empty());

  const std::string before = dir_.Read("passwd");
  brisq_panel::StoreLine("c@example.org", line);
  EXPECT_EQ(before + "c@example.org:{X}hash:1:1::/h:::maildir:~/.maildir x=y:z\n",
            dir_.Read("passwd"));
  brisq_panel::StoreLine("c@example.org", brisq_panel::StoredLine("b@example.org"));
  EXPECT_EQ(before + "c@example.org::1:1::/h:::\n", dir_.Read("passwd"));
  brisq_panel::RemoveLine("c@example.org");
  brisq_panel::RemoveLine("nobody@example.org");
  EXPECT_EQ(before, dir_.Read("passwd"));
}

TEST_F(PasswordLine, AMissingLineIsAnError) {
  EXPECT_EQ("missed", panel_test::ErrorOf([] { StoreHash("c@example.org", "{X}h"); }).type());
}

TEST_F(PasswordLine, AFailedRequestBringsTheHashBack) {
  const std::string before = dir_.Read("passwd");
  {
    Request request("test");
    StoreHash("a@example.org", "{Y}other");
    EXPECT_EQ("{Y}other", StoredHash("a@example.org"));
  }
  EXPECT_EQ(before, dir_.Read("passwd"));
}

TEST_F(PasswordLine, WithoutAFileThereIsNoLineAndNoneIsMade) {
  mgr_cf::SetPath("dovecot-passwd", dir_ / "missing");
  EXPECT_EQ(std::nullopt, StoredHash("a@example.org"));
  EXPECT_FALSE(std::filesystem::exists(dir_ / "missing"));
  mgr_cf::SetPath("dovecot-passwd", "");
  EXPECT_EQ(std::nullopt, StoredHash("a@example.org"));
}

}  // namespace
