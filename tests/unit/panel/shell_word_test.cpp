#include "panel/shell_word.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/temp_dir.h"

namespace brisq_panel {
namespace {

TEST(ShellWord, StaysAsItIsWhereTheShellSeesNothingInIt) {
  EXPECT_EQ("/srv/web1/a_b-c.d+e@x.org", ShellWord("/srv/web1/a_b-c.d+e@x.org"));
  EXPECT_EQ("''", ShellWord(""));
  EXPECT_EQ("'a b'", ShellWord("a b"));
  EXPECT_EQ("'it'\\''s'", ShellWord("it's"));
}

TEST(ShellWord, IsOneWordForARealShellWhateverItHolds) {
  const support::TempDir dir;
  for (const char* text : {"a b", "it's", "$(id)", "`id`", "a;b", "a\\", "\"", "*", "~", "a\tb",
                           "ü", "#", "a&&b", "-n"}) {
    SCOPED_TRACE(text);
    const std::string line = "printf '%s' " + ShellWord(text) + " >" + ShellWord(dir / "out");
    ASSERT_EQ(0, std::system(line.c_str()));
    EXPECT_EQ(text, dir.Read("out"));
  }
}

}  // namespace
}  // namespace brisq_panel
