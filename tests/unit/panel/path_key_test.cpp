#include "panel/path_key.h"

#include "framework/config_file.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using brisq_panel::AbsolutePath;

class PathKey : public testing::Test {
 protected:
  ~PathKey() override { mgr_cf::Reset(); }
};

TEST_F(PathKey, AnAbsolutePathIsGivenAsItStands) {
  mgr_cf::SetPath("key", "/etc//a file");
  EXPECT_EQ("/etc//a file", AbsolutePath("key"));
}

TEST_F(PathKey, AnyOtherValueIsRefusedByTheNameOfItsKey) {
  for (const char* value : {"", "relative", "./relative", "~/file", " /file"}) {
    SCOPED_TRACE(value);
    mgr_cf::SetPath("key", value);
    EXPECT_EQ("config: key: must be set to an absolute path in [path]",
              panel_test::TextOf([] { AbsolutePath("key"); }));
  }
  EXPECT_EQ("config", panel_test::ErrorOf([] { AbsolutePath("never set"); }).type());
}

}  // namespace
