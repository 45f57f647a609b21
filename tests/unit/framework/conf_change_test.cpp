#include "framework/conf_change.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <memory>
#include <new>
#include <string>

#include "tests/support/sanitized.h"
#include "tests/unit/framework/conf_fixture.h"

namespace {

using conf_fixture::ErrorOf;

std::shared_ptr<ConfDocument> Parse(const std::string& text) {
  return std::make_shared<ConfDocument>(std::make_shared<ConfBytes>(text), mgr_token::Params{});
}

ConfChange::Target Named(const std::string& name) { return {name, {}, {}, ConfDocument::kNone}; }

ConfChange SetSecond(const std::string& name, const std::string& value) {
  return ConfChange::Set(Named(name), 3, {{2, value}});
}

ConfChange Remove(const std::string& name) { return ConfChange::Remove(Named(name), 3); }

const std::string kFile = "#\na:1:x\r\nb:2:y\nshort:1\nc:3:z";

TEST(ConfChange, IsMadeAndTakenBackByteForByte) {
  struct Case {
    const char* name;
    ConfChange change;
    const char* after;
  };
  const Case cases[] = {
      {"add", ConfChange::Add("d", "d:4:w"), "#\na:1:x\r\nb:2:y\nshort:1\nc:3:z\nd:4:w\n"},
      {"set", SetSecond("a", "9"), "#\na:9:x\r\nb:2:y\nshort:1\nc:3:z"},
      {"set in the last line", SetSecond("c", "9"), "#\na:1:x\r\nb:2:y\nshort:1\nc:9:z"},
      {"set to the same", SetSecond("a", "1"), "#\na:1:x\r\nb:2:y\nshort:1\nc:3:z"},
      {"rename", ConfChange::Set(Named("a"), 3, {{1, "d"}}), "#\nd:1:x\r\nb:2:y\nshort:1\nc:3:z"},
      {"remove", Remove("b"), "#\na:1:x\r\nshort:1\nc:3:z"},
      {"remove the last line", Remove("c"), "#\na:1:x\r\nb:2:y\nshort:1\n"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    const auto document = Parse(kFile);
    ConfChange change = test.change;
    change.Apply(document);
    EXPECT_EQ(document->Print(), test.after);
    EXPECT_EQ(change.Effective(), document->Print() != kFile);
    ConfChange reverse = change.Reverse();
    change.Undo(*document);
    EXPECT_EQ(document->Print(), kFile);
    change.Apply(document);
    EXPECT_EQ(document->Print(), test.after) << "applied a second time";
  }
}

TEST(ConfChange, IsReversedAsLongAsTheLineIsWhatWasLeft) {
  const struct {
    const char* name;
    ConfChange change;
    std::string want;
  } cases[] = {
      // The last line has got an end that it keeps.
      {"add", ConfChange::Add("d", "d:4:w"), kFile + "\n"},
      {"set", SetSecond("a", "9"), kFile},
      {"rename", ConfChange::Set(Named("a"), 3, {{1, "d"}}), kFile},
      {"remove", Remove("b"), kFile},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    const auto document = Parse(kFile);
    ConfChange change = test.change;
    change.Apply(document);
    ConfChange reverse = change.Reverse();
    reverse.Apply(document);
    EXPECT_EQ(document->Print(), test.want);
  }
}

TEST(ConfChange, IsNotReversedOverSomebodyElsesChange) {
  const struct {
    const char* name;
    ConfChange change;
    ConfChange other;
  } cases[] = {
      {"added line changed", ConfChange::Add("d", "d:4:w"), SetSecond("d", "7")},
      {"added line removed", ConfChange::Add("d", "d:4:w"), Remove("d")},
      {"set line changed", SetSecond("a", "9"), SetSecond("a", "10")},
      {"set line removed", SetSecond("a", "9"), Remove("a")},
      {"removed line added", Remove("b"), ConfChange::Add("b", "b:7:")},
      {"old name taken", ConfChange::Set(Named("a"), 3, {{1, "d"}}), ConfChange::Add("a", "a::")},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    const auto document = Parse(kFile);
    ConfChange change = test.change;
    ConfChange other = test.other;
    change.Apply(document);
    other.Apply(document);
    const std::string before = document->Print();
    ConfChange reverse = change.Reverse();
    const std::string error = ErrorOf([&] { reverse.Apply(document); });
    EXPECT_NE(error.find("not undone: changed since"), std::string::npos) << error;
    EXPECT_EQ(document->Print(), before);
  }
}

TEST(ConfChange, ARemovedLineComesBackInAReloadedDocumentToo) {
  const auto document = Parse(kFile);
  ConfChange change = Remove("b");
  change.Apply(document);
  ConfChange reverse = change.Reverse();
  const auto fresh = Parse(document->Print() + "\ne:5:v\n");
  reverse.Apply(fresh);
  EXPECT_EQ(fresh->Print(), "#\na:1:x\r\nshort:1\nc:3:z\ne:5:v\nb:2:y\n");
}

TEST(ConfChange, IsRefusedWithNothingChanged) {
  const struct {
    const char* name;
    ConfChange change;
    const char* error;
  } cases[] = {
      {"taken", ConfChange::Add("a", "a:4:w"), "exists: name: a"},
      {"taken, in a text that begins otherwise", ConfChange::Add("a", "<a:4:w"), "exists: name: a"},
      {"taken by a short line", ConfChange::Add("short", "short:4:w"), "exists: name: short"},
      {"missing", SetSecond("nobody", "1"), "missed: name: nobody"},
      {"short line", SetSecond("short", "1"), "missed: name: short"},
      {"removal of a short line", Remove("short"), "missed: name: short"},
      {"renamed to a taken name", ConfChange::Set(Named("a"), 3, {{1, "b"}}), "exists: name: b"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    const auto document = Parse(kFile);
    ConfChange change = test.change;
    EXPECT_EQ(ErrorOf([&] { change.Apply(document); }), test.error);
    EXPECT_EQ(document->Print(), kFile);
  }
}

TEST(ConfChange, FieldsOfOneLineChangedByTwoMeet) {
  const auto document = Parse(kFile);
  ConfChange first = SetSecond("a", "9");
  ConfChange second = ConfChange::Set(Named("a"), 3, {{3, "new:rest"}});
  first.Apply(document);
  second.Apply(document);
  EXPECT_EQ(document->Text(document->FindNamed("a")), "a:9:new:rest");
}

TEST(ConfChange, IsAppliedToWhatSomebodyHasMadeOfTheFile) {
  const auto document = Parse(kFile);
  ConfChange change = SetSecond("b", "9");
  change.Apply(document);
  const auto fresh = Parse("new\nb:2:edited\nc:3:z\n");
  change.Apply(fresh);
  EXPECT_EQ(fresh->Print(), "new\nb:9:edited\nc:3:z\n");
}

TEST(ConfChange, OfEqualNamesTheLineLookedAtIsChanged) {
  const auto document = Parse("a:1:\na:2:\n");
  ConfChange change = ConfChange::Set({"a", "a:2:", document, 1}, 3, {{3, "x"}});
  change.Apply(document);
  EXPECT_EQ(document->Print(), "a:1:\na:2:x\n");
  const auto fresh = Parse("#\na:1:\na:2:\n");
  change.Apply(fresh);
  EXPECT_EQ(fresh->Print(), "#\na:1:\na:2:x\n");
  const auto without = Parse("a:3:\n");
  change.Apply(without);
  EXPECT_EQ(without->Print(), "a:3:x\n");
}

TEST(ConfChange, SaysInWordsWhatItDoes) {
  EXPECT_EQ(ConfChange::Add("a", "a:secret").Words(), "line of a added");
  EXPECT_EQ(ConfChange::Add("a", "<a>:secret").Words(), "line of a added");
  EXPECT_EQ(ConfChange::Add("a", "a:secret").Reverse().Words(), "line of a restored");
  EXPECT_EQ(SetSecond("a", "secret").Words(), "line of a changed");
  EXPECT_EQ(Remove("a").Words(), "line of a removed");
  EXPECT_EQ(Remove("a").Reverse().Words(), "line of a restored");
}

TEST(ConfChange, AnEditOfTheWholeFileIsMadeByteForByteAndTakenBack) {
  const std::string edits[] = {"",
                               kFile,
                               kFile + "\n",
                               "c:3:z\nb:2:y\n#\n",
                               "#\na:1:x\r\n",
                               "# new head\n" + kFile,
                               "#\na:1:x\r\nb:2:y\nshort:1\nc:3:zz\n"};
  for (const std::string& edited : edits) {
    SCOPED_TRACE(edited);
    const auto document = Parse(kFile);
    ConfChange change = ConfChange::Edit(kFile, edited);
    change.Apply(document);
    EXPECT_EQ(document->Print(), edited);
    EXPECT_EQ(change.Effective(), edited != kFile);
    EXPECT_EQ(document->FindNamed("b") != ConfDocument::kNone,
              edited.find("b:2:y") != std::string::npos);
    ConfChange reverse = change.Reverse();
    reverse.Apply(document);
    EXPECT_EQ(document->Print(), kFile);
    reverse.Undo(*document);
    change.Undo(*document);
    EXPECT_EQ(document->Print(), kFile);
  }
}

TEST(ConfChange, AnEditOfTheWholeFileIsMergedWithWhatOthersDidOrRefused) {
  const auto document = Parse("#\na:9:x\r\nb:2:y\nshort:1\nc:3:z\nnew:1:1\n");
  ConfChange edit = ConfChange::Edit(kFile, "#\na:1:w\r\nb:2:y\nc:3:z");
  edit.Apply(document);
  EXPECT_EQ(document->Print(), "#\na:9:w\r\nb:2:y\nc:3:z\nnew:1:1\n");
  ConfChange clash = ConfChange::Edit(kFile, "#\na:2:x\r\nb:2:y\nshort:1\nc:3:z");
  EXPECT_EQ(ErrorOf([&] { clash.Apply(document); }),
            "later: a: changed by somebody else meanwhile");
  EXPECT_EQ(document->Print(), "#\na:9:w\r\nb:2:y\nc:3:z\nnew:1:1\n");
}

// From here on this process has no memory left for a piece of 64 KiB or more.
void EndMemory() {
  const rlimit none = {1, 1};
  setrlimit(RLIMIT_AS, &none);
  constexpr std::size_t kPiece = std::size_t{64} << 10;
  while (::operator new(kPiece, std::nothrow) != nullptr) {
  }
}

const std::string kLong(std::size_t{8} << 20, 'l');

TEST(ConfChangeWithoutMemory, LeavesTheDocumentAsItWas) {
  if (support::kSanitized) GTEST_SKIP() << "a sanitizer ends the process where memory ends";
  EXPECT_EXIT(
      {
        // The line before gets an end of its own before the new one is refused its room.
        const auto document = Parse("a:1:x");
        ConfChange change = ConfChange::Add("d", "d:" + kLong);
        EndMemory();
        bool refused = false;
        try {
          change.Apply(document);
        } catch (const std::bad_alloc&) {
          refused = true;
        }
        const bool same = document->Print() == "a:1:x" && !change.Effective();
        _exit(refused ? (same ? 0 : 2) : 3);
      },
      testing::ExitedWithCode(0), "");
}

TEST(ConfChangeWithoutMemory, EndsTheProcessRatherThanLeaveHalfOfAnUndo) {
  if (support::kSanitized) GTEST_SKIP() << "a sanitizer ends the process where memory ends";
  EXPECT_EXIT(
      {
        const auto document = Parse("a:" + kLong + ":x");
        ConfChange change = SetSecond("a", "9");
        change.Apply(document);
        EndMemory();
        try {
          change.Undo(*document);
        } catch (...) {
        }
        _exit(0);
      },
      testing::KilledBySignal(SIGABRT), "bad_alloc");
}

}  // namespace
