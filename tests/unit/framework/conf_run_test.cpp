#include "framework/conf_run.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

namespace {

using Line = ConfDocument::Line;

constexpr unsigned long kColumns = 3;

const std::string kFile = "a:1:x\n#c:2:x\n\nshort:\n:3:x\r\nb:4:x:y\r\nc:5:z";

ConfDocument Parse(const std::string& text) {
  return ConfDocument(std::make_shared<ConfBytes>(text), mgr_token::Params{});
}

// The records behind a line, each with its columns joined again.
std::vector<std::string> Walk(const ConfDocument& document, Line line) {
  ConfRun run(document, line);
  std::array<std::string_view, kColumns> columns;
  std::vector<std::string> records;
  while (run.Next(document.Syntax(), columns)) {
    const std::string joined =
        std::string(columns[0]) + ":" + std::string(columns[1]) + ":" + std::string(columns[2]);
    EXPECT_EQ(joined, document.Text(run.At()));
    records.push_back(joined);
  }
  return records;
}

TEST(ConfRun, GoesToEachRecordBehindALine) {
  const ConfDocument document = Parse(kFile);
  EXPECT_EQ(Walk(document, 0), (std::vector<std::string>{"b:4:x:y", "c:5:z"}));
  EXPECT_EQ(Walk(document, document.FindNamed("b")), std::vector<std::string>{"c:5:z"});
  EXPECT_TRUE(Walk(document, document.FindNamed("c")).empty());
}

TEST(ConfRun, EndsBeforeWhatWasChanged) {
  ConfDocument document = Parse("a:1:x\nb:2:x\nc:3:x\nd:4:x\n");
  document.Put(document.FindNamed("c"), "c:9:x\n");
  EXPECT_EQ(Walk(document, 0), std::vector<std::string>{"b:2:x"});
  EXPECT_TRUE(Walk(document, document.FindNamed("b")).empty());
  EXPECT_TRUE(Walk(document, document.FindNamed("c")).empty());
  EXPECT_TRUE(Walk(document, document.FindNamed("d")).empty());
}

TEST(ConfRun, HasNothingOfWhatWasAdded) {
  ConfDocument document = Parse("a:1:x\n");
  const Line added = document.Extend();
  document.Put(added, "b:2:x\n");
  document.Put(document.Extend(), "c:3:x\n");
  EXPECT_TRUE(Walk(document, 0).empty());
  EXPECT_TRUE(Walk(document, added).empty());
}

TEST(ConfRun, OutlivesChangesOfTheDocument) {
  ConfDocument document = Parse("a:1:x\nb:2:x\n");
  ConfRun run(document, 0);
  document.Put(document.FindNamed("b"), {});
  std::array<std::string_view, kColumns> columns;
  ASSERT_TRUE(run.Next(document.Syntax(), columns));
  EXPECT_EQ(columns[1], "2");
  EXPECT_FALSE(ConfRun().Next(document.Syntax(), columns));
}

}  // namespace
