#include "framework/journal_record.h"

#include <gtest/gtest.h>

namespace {

using journal::Step;

std::string EveryByte() {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) {
    bytes += static_cast<char>(byte);
  }
  return bytes;
}

TEST(JournalRecord, ValuesBearEveryByte) {
  const Step step{"kind", {{"all", EveryByte()}, {"empty", ""}, {"percent", "%41%"}}};
  EXPECT_EQ(step, journal::FromText(journal::Text(step)));
  for (const char byte : journal::Text(step)) {
    EXPECT_TRUE(byte >= ' ' && byte < 0x7f) << static_cast<int>(byte);
  }
}

TEST(JournalRecord, AStepWithoutValuesIsItsKind) {
  EXPECT_EQ("committed", journal::Text({"committed", {}}));
  EXPECT_EQ((Step{"committed", {}}), journal::FromText("committed"));
  EXPECT_EQ("", Step{}.Value("missing"));
}

// A process may be killed, and a disk may lose power, after any byte.
TEST(JournalRecord, ATornRecordNeverCountsAndThoseBeforeItDo) {
  const std::vector<Step> steps = {{"a", {{"x", "1"}}}, {"b", {{"y", " \n"}}}, {"c", {}}};
  std::string content;
  std::vector<std::size_t> ends;
  for (const Step& step : steps) {
    content += journal::Record(step);
    ends.push_back(content.size());
  }
  for (std::size_t cut = 0; cut <= content.size(); ++cut) {
    SCOPED_TRACE("cut after byte " + std::to_string(cut));
    std::size_t whole = 0;
    while (whole < ends.size() && ends[whole] <= cut) {
      ++whole;
    }
    const std::vector<Step> expected(steps.begin(),
                                     steps.begin() + static_cast<std::ptrdiff_t>(whole));
    EXPECT_EQ(expected, journal::FromRecords(std::string_view(content).substr(0, cut)));
  }
}

TEST(JournalRecord, ADamagedRecordEndsTheList) {
  const std::string first = journal::Record({"a", {{"x", "1"}}});
  const std::string content = first + journal::Record({"b", {{"y", "2"}}});
  for (std::size_t at = first.size(); at < content.size(); ++at) {
    SCOPED_TRACE(at);
    std::string damaged = content;
    damaged[at] = static_cast<char>(damaged[at] ^ 1);
    EXPECT_EQ(1u, journal::FromRecords(damaged).size());
  }
}

TEST(JournalRecord, KnowsHowMuchOfAContentIsWhole) {
  const std::string first = journal::Record({"a", {{"b", "c"}}});
  const std::string second = journal::Record({"d", {}});
  for (std::size_t cut = 0; cut < second.size(); ++cut) {
    SCOPED_TRACE("cut after byte " + std::to_string(cut));
    EXPECT_EQ(first.size(), journal::WholeLength(first + second.substr(0, cut)));
  }
  EXPECT_EQ(first.size() + second.size(), journal::WholeLength(first + second));
  EXPECT_EQ(0u, journal::WholeLength("damaged\n" + first));
  EXPECT_EQ(0u, journal::WholeLength(""));
}

}  // namespace
