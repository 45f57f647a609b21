#include "panel/short_lines.h"

#include <filesystem>
#include <functional>

#include "conf_dataset.h"
#include "panel/domain_changes.h"
#include "panel/mailbox_changes.h"
#include "panel/mailbox_removal.h"
#include "panel/mailboxes.h"
#include "panel/sync.h"
#include "tests/unit/panel/passwd_file_backend.h"

namespace brisq_panel {
namespace {

using panel_test::ErrorOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

ConfDocument Parse(std::string_view text) {
  return {std::make_shared<ConfBytes>(text), *UnixConfParams()};
}

const std::string kWhole = ":{X}h:1:1::/h:::m\n";

TEST(ShortLines, AreThoseThatStandForANameAlone) {
  struct Case {
    const char* name;
    std::string text;
    std::vector<std::string> places;
  };
  const Case cases[] = {
      {"nothing", "", {}},
      {"whole lines", "a@x" + kWhole + "b@x" + kWhole, {}},
      {"comments and blanks", "# a@x:h\n\n:a@x\n", {}},
      {"the name alone", "a@x\n", {"/p, line 1: a@x has 1 of 9 columns"}},
      {"cut in the hash", "\nb@x" + kWhole + "a@x:{X}h", {"/p, line 3: a@x has 2 of 9 columns"}},
      {"one column too few", "a@x:h:1:1::/h::\n", {"/p, line 1: a@x has 8 of 9 columns"}},
      {"with a whole line too", "a@x:h\na@x" + kWhole, {}},
      {"several", "a@x:h\r\nb@x:h\n", {"/p, line 1: a@x has 2", "/p, line 2: b@x has 2"}},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    const ConfDocument document = Parse(one.text);
    const auto lines = ShortLines("/p", document);
    ASSERT_EQ(one.places.size(), lines.size());
    for (std::size_t i = 0; i < lines.size(); ++i) {
      EXPECT_THAT(lines[i].place + ": " + lines[i].problem, HasSubstr(one.places[i]));
      const auto found = FindShortLine("/p", document, lines[i].name);
      ASSERT_TRUE(found);
      EXPECT_EQ(lines[i].place, found->place);
      EXPECT_EQ(lines[i].problem, found->problem);
    }
    EXPECT_FALSE(FindShortLine("/p", document, "nobody@x"));
    EXPECT_EQ(one.places.empty(), !FindShortLine("/p", document, "a@x"));
  }
}

class ShortLinesOfMailboxes : public panel_test::FilePanelTest,
                              public testing::WithParamInterface<bool> {
 protected:
  ShortLinesOfMailboxes() {
    Use(GetParam());
    for (const char* local : {"al", "bo", "cy"}) Add(local);
    Sync(false);  // makes the Maildirs
    whole_ = Lines();
    const auto line = whole_.find("cy@");
    dir_.Write("passwd", whole_.substr(0, line) + "cy@example.org:{CLEAR}sec");
  }

  std::string whole_;
};

// What a request does to the lines of others it takes back.
TEST_P(ShortLinesOfMailboxes, EveryChangeNamesFileLineAndRuleAndChangesNothing) {
  const std::string before = Lines();
  const std::pair<const char*, std::function<void()>> changes[] = {
      {"quota", [] { SetMailboxes({"cy@example.org"}, {.quota = "1G"}); }},
      {"off", [] { SetMailboxes({"cy@example.org"}, {.active = false}); }},
      {"several off",
       [] {
         SetMailboxes({"al@example.org", "cy@example.org"}, {.active = false});
       }},
      {"password", [] { SetPassword("cy@example.org", "other"); }},
      {"delete", [] { DeleteMailboxes({"cy@example.org"}); }},
      {"delete several",
       [] {
         DeleteMailboxes({"al@example.org", "cy@example.org"});
       }},
      {"domain off", [] { SetDomain("example.org", {.active = false}); }},
      {"domain delete", [] { DeleteDomain("example.org"); }},
  };
  for (const auto& [name, change] : changes) {
    SCOPED_TRACE(name);
    const auto error = ErrorOf(change);
    EXPECT_EQ("file", error.type());
    EXPECT_THAT(error.object(), HasSubstr(path_ + ", line 3"));
    EXPECT_THAT(error.value(), HasSubstr("cy@example.org has 2 of 9 columns"));
    EXPECT_THAT(error.value(), HasSubstr("\"brisq passwd-file edit\""));
    EXPECT_THAT(error.what(), Not(HasSubstr("sec")));
    EXPECT_EQ(before, Lines());
    EXPECT_TRUE(ShowMailbox("cy@example.org").active);
  }
}

TEST_P(ShortLinesOfMailboxes, AMailboxThatComesBackMeetsItToo) {
  dir_.Write("passwd", whole_);
  SetMailboxes({"cy@example.org"}, {.active = false});
  dir_.Write("passwd", Lines() + "cy@example.org:h\n");
  const auto error = ErrorOf([] { SetMailboxes({"cy@example.org"}, {.active = true}); });
  EXPECT_THAT(error.what(), HasSubstr(path_ + ", line 3: cy@example.org has 2 of 9 columns"));
  EXPECT_FALSE(ShowMailbox("cy@example.org").active);
}

TEST_P(ShortLinesOfMailboxes, ASyncLeavesItAloneAndServesTheOthers) {
  const std::string cut = "cy@example.org:{CLEAR}sec\n";
  dir_.Write("passwd", cut);
  for (const bool real : {false, true}) {
    SCOPED_TRACE(real);
    const SyncReport report = real ? Sync(true) : PlanSync();
    EXPECT_THAT(report.unsafe, ElementsAre(HasSubstr(path_ + ", line 1: cy@example.org has 2 of")));
    EXPECT_TRUE(report.Differs());
  }
  EXPECT_THAT(Lines(), testing::StartsWith(cut + "al@example.org:"));
  EXPECT_NE("none", LineOf("bo@example.org"));
  dir_.Write("passwd", whole_);
  EXPECT_THAT(PlanSync().unsafe, IsEmpty());
}

TEST_P(ShortLinesOfMailboxes, WithoutALineThatIsSaidInstead) {
  dir_.Write("passwd", whole_.substr(0, whole_.find("cy@")));
  const auto error = ErrorOf([] { SetMailboxes({"cy@example.org"}, {.quota = "1G"}); });
  EXPECT_EQ("missed", error.type());
  EXPECT_THAT(error.what(), HasSubstr("cy@example.org has no line in " + path_ + "; brisq sync"));
  DeleteMailboxes({"cy@example.org"});
}

INSTANTIATE_TEST_SUITE_P(Places, ShortLinesOfMailboxes, testing::Bool());

}  // namespace
}  // namespace brisq_panel
