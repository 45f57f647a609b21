#include "framework/conf_index.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

namespace {

using Line = ConfIndex::Line;

Line FindLine(const ConfIndex& index, std::uint32_t hash, Line line) {
  return index.Find(hash, [line](Line other) { return other == line; });
}

void Insert(ConfIndex& index, std::uint32_t hash, Line line) {
  EXPECT_EQ(index.FindOrInsert(hash, line, [line](Line other) { return other == line; }),
            ConfIndex::kNone);
}

TEST(ConfIndex, WhatIsThereIsGivenAndNotInsertedAgain) {
  ConfIndex index(0);
  Insert(index, 5, 1);
  EXPECT_EQ(index.FindOrInsert(5, 2, [](Line line) { return line == 1; }), 1U);
  EXPECT_EQ(FindLine(index, 5, 2), ConfIndex::kNone);
}

TEST(ConfIndex, WhatWasInsertedIsFoundAndNothingElse) {
  ConfIndex index(0);
  for (Line line = 0; line < 1000; ++line) Insert(index, line * 7919, line);
  for (Line line = 0; line < 1000; ++line) {
    ASSERT_EQ(FindLine(index, line * 7919, line), line);
    ASSERT_EQ(FindLine(index, line * 7919 + 1, line), ConfIndex::kNone);
  }
}

// Homes at both ends of the table, where probing wraps round, are where erasing goes wrong.
TEST(ConfIndex, AgreesWithASimpleMapUnderRandomChanges) {
  std::mt19937 random(42);
  const std::uint32_t hashes[] = {0, 1, 0x10000000, 0x7FFFFFFF, 0xF0000000, 0xFFFFFFFE, 0xFFFFFFFF};
  ConfIndex index(4);
  std::map<Line, std::uint32_t> model;
  for (int step = 0; step < 20000; ++step) {
    const auto line = static_cast<Line>(random() % 40);
    const auto known = model.find(line);
    if (known == model.end()) {
      const std::uint32_t hash = hashes[random() % std::size(hashes)];
      Insert(index, hash, line);
      model[line] = hash;
    } else if (random() % 4 == 0) {
      index.Replace(known->second, line, line + 1000);
      ASSERT_EQ(FindLine(index, known->second, line + 1000), line + 1000);
      index.Replace(known->second, line + 1000, line);
    } else {
      index.Erase(known->second, line);
      model.erase(known);
    }
    for (Line other = 0; other < 40; ++other) {
      const auto there = model.find(other);
      const Line want = there == model.end() ? ConfIndex::kNone : other;
      for (const std::uint32_t hash : hashes) {
        const bool here = there != model.end() && there->second == hash;
        ASSERT_EQ(FindLine(index, hash, other), here ? want : ConfIndex::kNone) << "step " << step;
      }
    }
  }
}

TEST(ConfIndex, HashesDependOnEveryByteAndOnTheLength) {
  const std::string text = "somebody@example.org";
  const std::uint32_t hash = ConfIndex::Hash(text);
  EXPECT_EQ(ConfIndex::Hash(std::string(text)), hash);
  for (std::size_t at = 0; at < text.size(); ++at) {
    SCOPED_TRACE(at);
    std::string other = text;
    ++other[at];
    EXPECT_NE(ConfIndex::Hash(other), hash);
    EXPECT_NE(ConfIndex::Hash(text.substr(0, at)), hash);
  }
  EXPECT_NE(ConfIndex::Hash(std::string(3, '\0')), ConfIndex::Hash(std::string(4, '\0')));
}

}  // namespace
