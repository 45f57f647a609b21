#include "framework/conf_document.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <latch>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/unit/framework/conf_fixture.h"

namespace {

using Line = ConfDocument::Line;
using conf_fixture::ErrorOf;

constexpr Line kNone = ConfDocument::kNone;

ConfDocument Parse(const std::string& text) {
  return ConfDocument(std::make_shared<ConfBytes>(text), mgr_token::Params{});
}

// Where the lines with content begin.
std::vector<Line> LinesOf(const ConfDocument& document) {
  std::vector<Line> lines;
  for (Line line = document.NextLine(0); line != kNone; line = document.NextLine(line + 1)) {
    lines.push_back(line);
  }
  return lines;
}

const std::string kFile =
    "# head\n"
    "a:1:x\n"
    "\n"
    ":no name\n"
    "b:2:y\r\n"
    "short\n"
    "a:3:z\n"
    "last:4:w";

TEST(ConfDocument, EveryPrefixOfAFileIsPrintedUnchanged) {
  for (std::size_t cut = 0; cut <= kFile.size(); ++cut) {
    SCOPED_TRACE("cut after byte " + std::to_string(cut));
    EXPECT_EQ(Parse(kFile.substr(0, cut)).Print(), kFile.substr(0, cut));
  }
}

TEST(ConfDocument, LinesAreTakenApartIntoTextAndName) {
  const struct {
    const char* name;
    std::string raw;
    const char* text;
    const char* key;
    bool record;
  } cases[] = {
      {"record", "a:1:x\n", "a:1:x", "a", true},
      {"record with CR LF", "a:1:x\r\n", "a:1:x", "a", true},
      {"record without an end", "a:1:x", "a:1:x", "a", true},
      {"more separators", "a:1:x:y:\n", "a:1:x:y:", "a", true},
      {"empty columns", "a::\n", "a::", "a", true},
      {"short", "a:1\n", "a:1", "a", false},
      {"name alone", "a\r\n", "a", "a", false},
      {"blank", "\n", "", "", false},
      {"blank with CR", "\r\n", "", "", false},
      {"comment", "#a:1:x\n", "#a:1:x", "", false},
      {"no name", ":1:x\n", ":1:x", "", false},
      {"spaces", "  \n", "  ", "  ", false},
      {"NUL", std::string("\0a:1:x\n", 7), "", "", true},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    const ConfDocument document = Parse(test.raw);
    ASSERT_EQ(LinesOf(document), (std::vector<Line>{0}));
    EXPECT_EQ(document.Raw(0), test.raw);
    EXPECT_EQ(document.IsRecord(0, 3), test.record);
    if (test.raw[0] == '\0') continue;
    EXPECT_EQ(document.Text(0), test.text);
    EXPECT_EQ(document.Name(0), test.key);
  }
}

TEST(ConfDocument, RecordsAreWalkedInOrderAndFoundByName) {
  const ConfDocument document = Parse(kFile);
  const std::vector<Line> at = LinesOf(document);
  std::vector<Line> walk;
  for (Line line = document.NextRecord(0, 3); line != kNone;
       line = document.NextRecord(line + 1, 3)) {
    walk.push_back(line);
  }
  ASSERT_EQ(at.size(), 8U);
  EXPECT_EQ(walk, (std::vector<Line>{at[1], at[4], at[6], at[7]}));
  // With and without an index.
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    EXPECT_EQ(document.FindRecord("a", 3), at[1]);
    EXPECT_EQ(document.AllNamed("a"), (std::vector<Line>{at[1], at[6]}));
    EXPECT_EQ(document.FindRecord("last", 3), at[7]);
    document.Index();
    EXPECT_EQ(document.FindRecord("short", 3), kNone);
    EXPECT_EQ(document.FindNamed("short"), at[5]);
  }
}

TEST(ConfDocument, WhatIsNoNameIsNotFound) {
  for (const char* name :
       {"", "#", "# head", ":", "a:1", "a\nb", "ab", "b", "ab:1:x", "\n", "z:"}) {
    const ConfDocument document = Parse("# head\na\nb:1:x\nabc:2:y\nlonger a\n");
    const Line want = name == std::string("b") ? Line{9} : kNone;
    SCOPED_TRACE(name);
    EXPECT_EQ(document.FindNamed(name), want);
    EXPECT_EQ(document.AllNamed(name).size(), want == kNone ? 0U : 1U);
    document.Index();
    EXPECT_EQ(document.FindNamed(name), want);
    EXPECT_EQ(document.AllNamed(name).size(), want == kNone ? 0U : 1U);
  }
}

TEST(ConfDocument, ALongTextThatGoesOnBehindANameIsNotFound) {
  const std::string name = "somebody@a-long-domain.example";
  const std::string text = name + ":1:x\nshort\n" + name + "2\n:3:y\n";
  const ConfDocument document = Parse(text);
  document.Index();
  EXPECT_EQ(document.FindNamed(name), 0U);
  EXPECT_EQ(document.FindNamed(name + "2"), LinesOf(document)[2]);
  for (const char* more : {":1", ":", "2\n", "2\n:3", "3", "\n"}) {
    SCOPED_TRACE(more);
    EXPECT_EQ(Parse(text).FindNamed(name + more), kNone);
    EXPECT_EQ(document.FindNamed(name + more), kNone);
    EXPECT_EQ(document.FindRecord(name + more, 1), kNone);
  }
  EXPECT_EQ(document.FindNamed(name.substr(0, 20)), kNone);
}

// Blocks of 16 bytes, parts of one, and from 255 bytes on sizes that look alike.
TEST(ConfDocument, NamesOfEachSizeAreFoundAndNothingLikeThem) {
  for (std::size_t size = 1; size < 300; size += size < 40 || size > 250 ? 1 : 10) {
    SCOPED_TRACE(size);
    const std::string name(size, 'x');
    const ConfDocument document = Parse("#\n" + name + ":1:x\n" + name + "y:2");
    document.Index();
    EXPECT_EQ(document.FindRecord(name, 2), 2U);
    EXPECT_EQ(document.FindRecord(name + "y", 2), LinesOf(document)[2]);
    EXPECT_EQ(document.FindRecord(name + "x", 2), kNone);
    EXPECT_EQ(document.FindRecord(name + ":1", 2), kNone);
    EXPECT_EQ(document.FindRecord(name.substr(1), 2), kNone);
    for (std::size_t at = 0; at < size; ++at) {
      std::string other = name;
      other[at] = at % 2 == 0 ? 'z' : ':';
      ASSERT_EQ(document.FindRecord(other, 2), kNone) << at;
    }
  }
}

// Two names that the index of a few lines can't tell from each other: the first two such of those
// that `name_of` gives for numbers and that begin with the same byte.
std::pair<std::string, std::string> LikeNames(
    const std::function<std::string(std::size_t)>& name_of) {
  const ConfIndex index(0);
  std::map<std::tuple<std::uint64_t, std::uint64_t, char>, std::string> names;
  for (std::size_t number = 0;; ++number) {
    const std::string name = name_of(number);
    const std::uint64_t hash = index.Hash(name);
    const auto [like, added] = names.try_emplace({hash >> 58, hash & 0xFFFFFF, name[0]}, name);
    if (!added) return {like->second, name};
  }
}

TEST(ConfDocument, NamesWhoseHashesLookAlikeAreToldApart) {
  const auto [one, other] = LikeNames(
      [](std::size_t number) { return std::to_string(number + 100'000) + "@example.org"; });
  const ConfDocument alone = Parse(one + ":1:x\n");
  alone.Index();
  EXPECT_EQ(alone.FindRecord(one, 3), 0U);
  EXPECT_EQ(alone.FindRecord(other, 3), kNone);
  const ConfDocument both = Parse(one + ":1:x\n" + other + ":2:y\n" + one + ":3:z\n");
  both.Index();
  EXPECT_EQ(both.FindRecord(one, 3), 0U);
  EXPECT_EQ(both.FindRecord(other, 3), LinesOf(both)[1]);
  EXPECT_EQ(both.AllNamed(one).size(), 2U);
}

TEST(ConfDocument, ALongNameIsNotFoundWhereALongerOneLooksAlike) {
  constexpr std::size_t kSizes = 2000;
  const auto [one, longer] = LikeNames([](std::size_t number) {
    return std::string(ConfIndex::kLongName + number % kSizes,
                       static_cast<char>('A' + number / kSizes));
  });
  ASSERT_TRUE(longer.starts_with(one));
  const ConfDocument document = Parse(longer + ":1:x\n");
  document.Index();
  EXPECT_EQ(document.FindRecord(longer, 3), 0U);
  EXPECT_EQ(document.FindRecord(one, 3), kNone);
}

// Names that look alike, and what an end of line may do to the last one.
TEST(ConfDocument, ANameIsThatOfItsLineWhole) {
  const ConfDocument document = Parse("ab:1:x\na\r:2:y\na\r\n\r:3:z\nab\r");
  const std::vector<Line> at = LinesOf(document);
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    EXPECT_EQ(document.FindNamed("a\r"), at[1]);
    EXPECT_EQ(document.FindNamed("a"), at[2]);
    EXPECT_EQ(document.FindNamed("\r"), at[3]);
    EXPECT_EQ(document.AllNamed("ab"), (std::vector<Line>{at[0], at[4]}));
    document.Index();
  }
}

TEST(ConfDocument, LinesAreWalkedBothWaysAroundThoseThatAreGone) {
  ConfDocument document = Parse("a:\nb:\nc:\nd:");
  const std::vector<Line> at = LinesOf(document);
  const Line added = document.Extend();
  const Line empty = document.Extend();
  document.Put(added, "e:\n");
  document.Put(at[0], {});
  document.Put(at[2], {});
  EXPECT_EQ(LinesOf(document), (std::vector<Line>{at[1], at[3], added}));
  EXPECT_EQ(document.LineBefore(document.End()), added);
  EXPECT_EQ(document.LineBefore(empty), added);
  EXPECT_EQ(document.LineBefore(added), at[3]);
  EXPECT_EQ(document.LineBefore(at[3]), at[1]);
  EXPECT_EQ(document.LineBefore(at[1]), kNone);
  EXPECT_EQ(Parse("").Last(), kNone);
}

TEST(ConfDocument, WhatIsUnchangedReachesUpToTheFirstChange) {
  ConfDocument document = Parse("a:\nb:\nc:\n");
  EXPECT_EQ(document.Unchanged(3), "b:\nc:\n");
  document.Put(3, "b:\n");
  EXPECT_EQ(document.Unchanged(0), "a:\n");
  EXPECT_EQ(document.Unchanged(3), "");
  EXPECT_EQ(document.Unchanged(6), "c:\n");
  EXPECT_EQ(document.Unchanged(document.Extend()), "");
}

TEST(ConfDocument, ARecordIsFoundBehindAShortLineOfItsName) {
  const ConfDocument document = Parse("a:1\na:2:x\na:3:y\n");
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    EXPECT_EQ(document.FindNamed("a"), 0U);
    EXPECT_EQ(document.FindRecord("a", 3), 4U);
    document.Index();
  }
}

// Large enough to be taken apart by two threads, with a short line in the half of each in turn.
TEST(ConfDocument, AShortLineIsNoRecordWhereverItIs) {
  constexpr int kLines = 90'000;
  const std::string rest = ":" + std::string(90, 'x') + ":c\n";
  for (const int place : {0, kLines - 1, -1}) {
    SCOPED_TRACE(place);
    std::string text = "# one column\n:another\n";
    for (int line = 0; line < kLines; ++line) {
      text += "n" + std::to_string(line) + (line == place ? ":x\n" : rest);
    }
    ASSERT_GT(text.size(), std::size_t{8} << 20);
    const ConfDocument document = Parse(text);
    document.Index();
    for (const int line : {0, 1, kLines - 2, kLines - 1}) {
      const std::string name = "n" + std::to_string(line);
      EXPECT_NE(document.FindRecord(name, 2), kNone) << name;
      EXPECT_EQ(document.FindRecord(name, 3) == kNone, line == place) << name;
      EXPECT_EQ(document.FindRecord(name, 4), kNone) << name;
    }
  }
}

TEST(ConfDocument, ALineThatBecomesShortIsNoRecord) {
  ConfDocument document = Parse("a:1:x\nb:2:y\n");
  document.Index();
  EXPECT_EQ(document.FindRecord("b", 3), 6U);
  const Line added = document.Extend();
  document.Put(added, "c:3\n");
  EXPECT_EQ(document.FindRecord("c", 3), kNone);
  EXPECT_EQ(document.FindRecord("c", 2), added);
  document.Put(6, "b:2\n");
  EXPECT_EQ(document.FindRecord("b", 3), kNone);
  EXPECT_EQ(document.FindRecord("b", 2), 6U);
  EXPECT_EQ(document.FindRecord("a", 3), 0U);
}

TEST(ConfDocument, AChangedLineChangesNoOtherByte) {
  ConfDocument document = Parse(kFile);
  const Line line = document.FindNamed("b");
  document.Put(line, "b:9:new\r\n");
  std::string want = kFile;
  want.replace(want.find("b:2:y"), 5, "b:9:new");
  EXPECT_EQ(document.Print(), want);
  EXPECT_EQ(document.Text(line), "b:9:new");
  document.Put(line, {});
  want.erase(want.find("b:9:new"), 9);
  EXPECT_EQ(document.Print(), want);
  EXPECT_EQ(document.FindNamed("b"), kNone);
}

TEST(ConfDocument, NewLinesComeLast) {
  ConfDocument document = Parse("a:1:x\n");
  const Line line = document.Extend();
  EXPECT_EQ(document.Print(), "a:1:x\n");
  EXPECT_EQ(document.Last(), 0U);
  document.Put(line, "b:2:y\n");
  EXPECT_EQ(document.Print(), "a:1:x\nb:2:y\n");
  EXPECT_EQ(document.FindRecord("b", 3), line);
  EXPECT_EQ(document.Last(), line);
}

TEST(ConfDocument, TheFirstOfEqualNamesStaysFirstWhateverComesAndGoes) {
  for (const bool indexed : {false, true}) {
    SCOPED_TRACE(indexed);
    ConfDocument document = Parse("a:1:\na:2:\na:3:\n");
    const std::vector<Line> at = LinesOf(document);
    if (indexed) document.Index();
    document.Put(at[0], {});
    EXPECT_EQ(document.FindRecord("a", 3), at[1]);
    document.Put(at[0], "a:0:\n");
    EXPECT_EQ(document.AllNamed("a"), at);
    document.Put(at[1], "b:2:\n");
    EXPECT_EQ(document.AllNamed("a"), (std::vector<Line>{at[0], at[2]}));
    document.Put(at[0], {});
    document.Put(at[2], {});
    EXPECT_EQ(document.FindNamed("a"), kNone);
    EXPECT_EQ(document.FindNamed("b"), at[1]);
  }
}

TEST(ConfDocument, NewLinesGetTheEndOfTheFirst) {
  EXPECT_EQ(Parse("a\r\nb\n").LineEnd(), "\r\n");
  EXPECT_EQ(Parse("a\nb\r\n").LineEnd(), "\n");
  EXPECT_EQ(Parse("").LineEnd(), "\n");
  ConfDocument document = Parse("a\r\nb\n");
  document.Put(0, {});
  EXPECT_EQ(document.LineEnd(), "\n");
}

TEST(ConfDocument, ASnapshotIsLeftAloneByLaterChanges) {
  ConfDocument document = Parse(kFile);
  const Line line = document.FindNamed("a");
  document.Put(line, "a:changed\n");
  const std::string before = document.Print();
  const ConfSnapshot snapshot = document.Snapshot();
  document.Put(line, "a:changed again, and longer\n");
  document.Put(0, {});
  document.Put(document.Extend(), "z\n");
  std::string text;
  for (const std::string_view piece : snapshot.pieces) text += piece;
  EXPECT_EQ(text, before);
}

// Each piece costs the system something when it is written.
TEST(ConfDocument, ChangedLinesThatFollowEachOtherAreOnePieceOfASnapshot) {
  ConfDocument document = Parse("a:1\nb:2\nc:3\nd:4\ne:5\n");
  document.Put(0, "A:1\n");
  document.Put(4, {});
  document.Put(8, "C:3\n");
  document.Put(16, "E:5\n");
  document.Put(document.Extend(), "f:6\n");
  EXPECT_THAT(document.Snapshot().pieces,
              testing::ElementsAre("A:1\nC:3\n", "d:4\n", "E:5\nf:6\n"));
}

TEST(ConfDocument, BecomesWornByManyChanges) {
  ConfDocument document = Parse("a:1:x\n");
  EXPECT_FALSE(document.IsWorn());
  document.Put(0, "a:1:" + std::string(std::size_t{2} << 20, 'x') + "\n");
  EXPECT_TRUE(document.IsWorn());
}

TEST(ConfDocument, DoesNotGetWornByOneLineThatIsChangedOverAndOver) {
  ConfDocument document = Parse("a:1:x\nb:2:y\nc:3:z\n");
  document.Put(0, "a:first\n");
  const Line added = document.Extend();
  document.Put(added, "d:added", "\n");
  const Line other = document.Extend();
  for (int time = 0; time < 100'000; ++time) {
    document.Put(6, "b:", std::to_string(time) + ":changed\n");
    document.Put(other, "e:" + std::to_string(time) + ":y\n");
  }
  EXPECT_FALSE(document.IsWorn());
  EXPECT_EQ(document.Print(), "a:first\nb:99999:changed\nc:3:z\nd:added\ne:99999:y\n");
  EXPECT_EQ(document.FindNamed("d"), added);
}

// Lines hold hashes, and passwords in schemes that do not hash.
TEST(ConfDocument, WhatALineHeldBeforeItWasChangedIsOverwritten) {
  ConfDocument document = Parse("a:1\nb:2\n");
  const Line added = document.Extend();
  for (const Line line : {Line{4}, added}) {
    SCOPED_TRACE(line == added ? "added" : "read");
    document.Put(line, "c:secret", "\n");
    const std::string_view held = document.Raw(line);
    document.Put(line, "d:3\n");
    EXPECT_EQ(held, std::string(held.size(), '\0'));
    document.Put(line, {});
  }
  EXPECT_EQ(document.Print(), "a:1\n");
}

TEST(ConfDocument, ALineCanBeMadeOfWhatItAndOthersHold) {
  ConfDocument document = Parse("a:1\nb:2\n");
  const Line added = document.Extend();
  document.Put(added, "c:3");
  document.Put(added, document.Raw(added), "\n");
  document.Put(0, document.Raw(0), document.Raw(added));
  document.Put(4, document.Raw(0));
  EXPECT_EQ(document.Print(), "a:1\nc:3\na:1\nc:3\nc:3\n");
}

// A file of one name only must not take time in the square of its lines.
TEST(ConfDocument, ManyLinesOfOneNameAreNoBurden) {
  std::string text;
  for (int line = 0; line < 200'000; ++line) text += "a:b\n";
  ConfDocument document = Parse(text);
  EXPECT_EQ(document.FindNamed("a"), 0U);
  EXPECT_EQ(document.FindRecord("a", 3), kNone);
  document.Index();
  document.Put(0, {});
  EXPECT_EQ(document.FindNamed("a"), 4U);
}

TEST(ConfDocument, HoldsLinesOfAnyLength) {
  const std::string longest(std::size_t{1} << 20, 'x');
  const ConfDocument document = Parse("a:" + longest + ":\n" + longest + "\n#\n");
  EXPECT_EQ(LinesOf(document).size(), 3U);
  EXPECT_EQ(document.FindRecord("a", 3), 0U);
  EXPECT_EQ(document.FindNamed(longest), longest.size() + 4);
}

// The index is made by whichever of them comes to it first.
TEST(ConfDocument, ManyThreadsFindAtOnce) {
  std::string text;
  for (int line = 0; line < 20'000; ++line) text += "u" + std::to_string(line) + ":1:x\n";
  const ConfDocument document = Parse(text);
  const std::vector<Line> at = LinesOf(document);
  std::atomic<int> found = 0;
  std::latch start(8);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([&] {
      start.arrive_and_wait();
      for (std::size_t line = 0; line < at.size(); line += 200) {
        if (document.FindRecord("u" + std::to_string(line), 3) == at[line]) ++found;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(found, 8 * 100);
}

/// The same as a list of lines, done in the simplest way.
class Model {
 public:
  explicit Model(std::vector<std::string> lines) : lines_(std::move(lines)) {}

  void Put(std::size_t line, const std::string& raw) {
    if (line == lines_.size()) lines_.emplace_back();
    lines_[line] = raw;
  }
  std::string Print() const {
    std::string text;
    for (const std::string& line : lines_) text += line;
    return text;
  }
  // Number of all lines when there is none.
  std::size_t FindNamed(const std::string& name) const {
    const auto found = std::find_if(lines_.begin(), lines_.end(), [&](const std::string& line) {
      return line.substr(0, line.find_first_of(":\n")) == name;
    });
    return static_cast<std::size_t>(found - lines_.begin());
  }
  std::size_t size() const { return lines_.size(); }

 private:
  std::vector<std::string> lines_;
};

TEST(ConfDocument, AgreesWithASimpleModelUnderRandomChanges) {
  std::mt19937 random(7);
  const auto name = [&] { return std::string(1, static_cast<char>('a' + random() % 6)); };
  for (int round = 0; round < 200; ++round) {
    std::vector<std::string> lines;
    for (std::size_t line = random() % 8; line > 0; --line) lines.push_back(name() + ":1:x\n");
    Model model(lines);
    ConfDocument document = Parse(model.Print());
    std::vector<Line> numbers = LinesOf(document);
    // The first finds look through the bytes, and the index is made of what was changed by then.
    const int first_find = static_cast<int>(random() % 40);
    for (int step = 0; step < 40; ++step) {
      const std::size_t line = random() % (model.size() + 1);
      const std::string raw = random() % 3 == 0 ? "" : name() + (random() % 2 ? ":2:y\n" : ":\n");
      model.Put(line, raw);
      if (line == numbers.size()) numbers.push_back(document.Extend());
      document.Put(numbers[line], raw);
      ASSERT_EQ(document.Print(), model.Print());
      for (char letter = 'a'; step >= first_find && letter < 'g'; ++letter) {
        const std::string wanted(1, letter);
        const std::size_t want = model.FindNamed(wanted);
        ASSERT_EQ(document.FindNamed(wanted), want == model.size() ? kNone : numbers[want]);
      }
    }
  }
}

// A file that two threads read: the line at its middle is as whole as any other, wherever the
// middle is in it.
TEST(ConfDocument, ALargeFileIsTakenApartAsASmallOneIs) {
  constexpr std::size_t kLines = 90'000;
  std::string text;
  for (std::size_t line = 0; line < kLines; ++line) {
    text += "u" + std::to_string(line) + ":" + std::string(90, 'x') + ":c\n";
  }
  for (std::size_t shift = 0; shift < 4; ++shift) {
    SCOPED_TRACE(shift * 25);
    const std::string head = "#" + std::string(shift * 50, '-') + "\n";
    const ConfDocument document = Parse(head + text);
    const std::vector<Line> at = LinesOf(document);
    ASSERT_EQ(kLines + 1, at.size());
    ASSERT_TRUE(document.Print() == head + text);
    for (std::size_t line = 0; line < kLines; ++line) {
      ASSERT_EQ(at[line + 1], document.FindRecord("u" + std::to_string(line), 3));
    }
  }
}

// Behind the middle of such a file there is no further line.
// The first names are looked for in the bytes, part by part.
TEST(ConfDocument, TheFirstOfEqualNamesIsFoundInWhicheverPartItIs) {
  constexpr std::size_t kPart = std::size_t{1} << 20;
  struct {
    const char* name;
    std::size_t line;  // bytes of each
    std::vector<std::size_t> equal;
  } const cases[] = {
      {"once, in the last line", 64, {9 * kPart / 64 - 1}},
      {"once, where a part begins", 64, {5 * kPart / 64}},
      {"once, across two parts", 61, {5 * kPart / 61}},
      {"in the first and the last line", 64, {0, 9 * kPart / 64 - 1}},
      {"in two parts that follow each other", 61, {3 * kPart / 61 + 9000, 4 * kPart / 61 + 90}},
      {"late in two parts", 61, {3 * kPart / 61 + 13000, 4 * kPart / 61 + 16000}},
      {"twice in one part", 61, {7 * kPart / 61 + 5, 7 * kPart / 61 + 6}},
      {"never", 61, {}},
  };
  for (const auto& [name, line, equal] : cases) {
    SCOPED_TRACE(name);
    std::string text;
    for (std::size_t at = 0; at < 9 * kPart / line; ++at) {
      const bool is_it = std::find(equal.begin(), equal.end(), at) != equal.end();
      text += is_it ? "it:" : "nn:";
      text.append(line - 4, 'x').push_back('\n');
    }
    const ConfDocument document = Parse(text);
    EXPECT_EQ(document.FindNamed("it"), equal.empty() ? kNone : equal.front() * line);
    std::vector<Line> all;
    for (const std::size_t at : equal) all.push_back(at * line);
    EXPECT_EQ(document.AllNamed("it"), all);
  }
}

TEST(ConfDocument, HoldsOneLineThatIsALargeFile) {
  for (const char* end : {"", "\n"}) {
    const std::string text = "name:" + std::string(std::size_t{9} << 20, 'x') + end;
    const ConfDocument document = Parse(text);
    EXPECT_EQ(1u, LinesOf(document).size());
    document.Index();
    EXPECT_EQ(0u, document.FindRecord("name", 2));
    EXPECT_TRUE(document.Print() == text);
  }
}

}  // namespace
