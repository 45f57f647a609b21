#include "framework/conf_registry.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/temp_dir.h"
#include "tests/unit/framework/conf_fixture.h"

namespace {

using conf_fixture::ErrorOf;

TEST(ConfRegistry, GivesOneFileForOnePathInOneSyntax) {
  ConfRegistry registry(2);
  registry.SetSyntax("one", {});
  registry.SetSyntax("same", {});
  registry.SetSyntax("other", {'='});
  const auto file = registry.File("one", "/a");
  EXPECT_EQ(registry.File("one", "/a"), file);
  EXPECT_EQ(registry.File("same", "/a"), file);
  EXPECT_NE(registry.File("one", "/b"), file);
  EXPECT_NE(registry.File("other", "/a"), file);
}

TEST(ConfRegistry, AConfigurationNeedsItsSyntax) {
  ConfRegistry registry(2);
  registry.Declare("half");
  for (const char* name : {"half", "unknown"}) {
    EXPECT_EQ(ErrorOf([&] { registry.File(name, "/a"); }),
              std::string("internal: ") + name + ": not a registered configuration");
  }
}

TEST(ConfRegistry, OfFilesThatNobodyUsesTheLeastRecentlyUsedLeaves) {
  ConfRegistry registry(2);
  registry.SetSyntax("c", {});
  const auto in_use = registry.File("c", "/used");
  std::weak_ptr<ConfFile> a = registry.File("c", "/a");
  std::weak_ptr<ConfFile> b = registry.File("c", "/b");
  registry.File("c", "/a");
  std::weak_ptr<ConfFile> d = registry.File("c", "/d");
  registry.File("c", "/used");
  EXPECT_EQ(registry.Files(), 3U);
  EXPECT_TRUE(b.expired());
  EXPECT_FALSE(a.expired());
  EXPECT_FALSE(d.expired());
}

TEST(ConfRegistry, AFileWithUnsavedChangesStays) {
  const support::TempDir folder;
  const std::string path = folder / "users";
  ConfRegistry registry(0);
  registry.SetSyntax("c", {});
  registry.File("c", path)->Apply(ConfChange::Add("a", "a:1"));
  registry.File("c", "/other");
  EXPECT_TRUE(registry.File("c", path)->HasWaiting());
}

}  // namespace
