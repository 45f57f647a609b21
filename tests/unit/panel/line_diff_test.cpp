#include "panel/line_diff.h"

#include <gmock/gmock.h>

namespace brisq_panel {
namespace {

struct Case {
  const char* name;
  std::string before;
  std::string after;
  std::vector<std::string> diff;
};

TEST(LineDiffTest, ChangesAreShownByLineWithHashesMasked) {
  const Case cases[] = {
      {"nothing", "a:{X}h:1\n", "a:{X}h:1\n", {}},
      {"both empty", "", "", {}},
      {"a value",
       "a:{X}h:1\nb:{X}h:1\n",
       "a:{X}h:1\nb:{X}h:2\n",
       {"@@ line 2 @@", "-b:{X}***:1", "+b:{X}***:2"}},
      {"a hash",
       "a:{X}h:1\n",
       "a:{X}i:1\n",
       {"@@ line 1 @@", "-a:{X}***:1", "+a:{X}*** (changed):1"}},
      {"a hash where none was",
       "a::1\n",
       "a:{X}i:1\n",
       {"@@ line 1 @@", "-a::1", "+a:{X}*** (changed):1"}},
      {"a hash without a scheme",
       "a:$1$h:1\n",
       "a:$1$h:2\n",
       {"@@ line 1 @@", "-a:***:1", "+a:***:2"}},
      {"removed", "a:h:1\nb:h:1\nc:h:1\n", "a:h:1\nc:h:1\n", {"@@ line 2 @@", "-b:***:1"}},
      {"added at the end", "a:h:1\n", "a:h:1\nb:h:1\n", {"@@ line 2 @@", "+b:***:1"}},
      {"added to nothing", "", "a:h:1\n", {"@@ line 1 @@", "+a:***:1"}},
      {"all removed", "a:h:1\n", "", {"@@ line 1 @@", "-a:***:1"}},
      {"removed and added",
       "a:h:1\nb:h:1\n",
       "b:h:1\nc:h:1\n",
       {"@@ line 1 @@", "-a:***:1", "@@ line 3 @@", "+c:***:1"}},
      {"neighbours are one group",
       "a:h:1\nb:h:1\nc:h:1\n",
       "c:h:1\n",
       {"@@ line 1 @@", "-a:***:1", "-b:***:1"}},
      {"two equal lines, one removed", "a:h:1\na:h:1\n", "a:h:1\n", {"@@ line 2 @@", "-a:***:1"}},
      {"a comment that was a line",
       "#a:secret:1\nb:h:1\n",
       "b:h:1\n",
       {"@@ line 1 @@", "-#a:***:1"}},
      {"an end of line that was missing", "a:h:1", "a:h:1\nb:h:1\n", {"@@ line 2 @@", "+b:***:1"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.diff, DiffLines(c.before, c.after));
  }
}

// With 100,000 lines anything quadratic would take minutes.
TEST(LineDiffTest, LongFilesTakeLinearTime) {
  std::string before;
  std::string after;
  for (int i = 0; i < 100000; ++i) {
    before += "user" + std::to_string(i) + ":{X}h:1\n";
    if (i % 10 != 0) after += "user" + std::to_string(i) + ":{X}h:1\n";
  }
  EXPECT_EQ(20000u, DiffLines(before, after).size());
}

}  // namespace
}  // namespace brisq_panel
