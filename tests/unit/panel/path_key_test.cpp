#include "panel/path_key.h"

#include <filesystem>

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

TEST_F(PathKey, AProgramThatIsHandedPasswordsMustBeTheAdministratorsAlone) {
  support::TempDir dir;
  const std::string program = dir.Write("doveadm", "#!/bin/sh\n");
  for (const std::string& value :
       {program + " -c /etc/x.conf", "  " + program, std::string("doveadm"),
        std::string("/no/such/program"), std::string()}) {
    SCOPED_TRACE(value);
    mgr_cf::SetPath("key", value);
    EXPECT_EQ("none", panel_test::ErrorOf([] { brisq_panel::RefuseUnsafeProgram("key"); }).type());
    EXPECT_TRUE(brisq_panel::IsSafeProgram("key"));
  }
  mgr_cf::SetPath("key", "bin/doveadm -c x");
  EXPECT_EQ("config: key: not safe: bin/doveadm is no absolute path",
            panel_test::TextOf([] { brisq_panel::RefuseUnsafeProgram("key"); }));
  std::filesystem::permissions(program, std::filesystem::perms::all);
  mgr_cf::SetPath("key", " " + program + " -c x");
  EXPECT_EQ("config: key: not safe: " + program + " is writable by other users",
            panel_test::TextOf([] { brisq_panel::RefuseUnsafeProgram("key"); }));
  EXPECT_FALSE(brisq_panel::IsSafeProgram("key"));
}

}  // namespace
