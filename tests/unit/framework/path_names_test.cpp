#include "framework/path_names.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

TEST(PathNames, AreTakenOneAfterTheOther) {
  const struct {
    const char* path;
    std::vector<std::string> names;
  } cases[] = {
      {"", {}},      {"///", {}},    {"a", {"a"}},
      {"/a", {"a"}}, {"/a/", {"a"}}, {"//a///bc/../.", {"a", "bc", "..", "."}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    std::string left = c.path;
    std::string name;
    std::vector<std::string> names;
    while (path_names::Take(left, name)) {
      names.push_back(name);
    }
    EXPECT_EQ(c.names, names);
    EXPECT_EQ(std::string::npos, left.find_first_not_of('/'));
  }
}

}  // namespace
