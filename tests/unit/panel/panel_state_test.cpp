#include "panel/panel_state.h"

#include "tests/unit/panel/panel_fixture.h"

namespace {

using brisq_panel::KeepValue;
using brisq_panel::KeptValue;

class PanelStateTest : public panel_test::PanelTest {};

TEST_F(PanelStateTest, ValuesAreKeptUnderTheirNames) {
  EXPECT_EQ("", KeptValue("a"));
  KeepValue("a", "1");
  KeepValue("b", "2");
  KeepValue("a", "3");
  EXPECT_EQ("3", KeptValue("a"));
  EXPECT_EQ("2", KeptValue("b"));
  KeepValue("a", "");
  EXPECT_EQ("", KeptValue("a"));
  EXPECT_EQ("2", Column("SELECT COUNT(*) FROM panel_state"));
}

}  // namespace
