#include "framework/conf_index.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <string>

namespace {

using Line = ConfIndex::Line;

using Hash = std::uint64_t;

Line FindLine(const ConfIndex& index, Hash hash, Line line) {
  return index.Find(hash, [line](Line other) { return other == line; });
}

template <class HashOf>
void Insert(ConfIndex& index, Hash hash, Line line, HashOf hash_of) {
  EXPECT_EQ(index.FindOrInsert(
                hash, line, [line](Line other) { return other == line; }, hash_of),
            ConfIndex::kNone);
}

TEST(ConfIndex, WhatIsThereIsGivenAndNotInsertedAgain) {
  ConfIndex index(0);
  const auto hash_of = [](Line) { return Hash{5}; };
  Insert(index, 5, 1, hash_of);
  EXPECT_EQ(index.FindOrInsert(
                5, 2, [](Line line) { return line == 1; }, hash_of),
            1U);
  EXPECT_EQ(FindLine(index, 5, 2), ConfIndex::kNone);
}

TEST(ConfIndex, WhatWasInsertedIsFoundAndNothingElse) {
  ConfIndex index(0);
  const auto hash_of = [](Line line) { return line * 0x9E3779B97F4A7C15; };
  for (Line line = 0; line < 1000; ++line) Insert(index, hash_of(line), line, hash_of);
  for (Line line = 0; line < 1000; ++line) {
    ASSERT_EQ(FindLine(index, hash_of(line), line), line);
    ASSERT_EQ(FindLine(index, hash_of(line) + 1, line), ConfIndex::kNone);
  }
}

// Hashes differ in their lower bits, which are what a slot keeps of them. Homes at both ends of the
// table, where probing wraps round, are where erasing goes wrong.
TEST(ConfIndex, AgreesWithASimpleMapUnderRandomChanges) {
  std::mt19937 random(42);
  const Hash hashes[] = {0,
                         1,
                         0x1000000000000002,
                         0x7FFFFFFFFFFFFFFD,
                         0xF000000000000003,
                         0xFFFFFFFFFFFFFFFE,
                         0xFFFFFFFFFFFFFFFF};
  ConfIndex index(4);
  std::map<Line, Hash> model;
  const auto hash_of = [&](Line line) { return model.at(line); };
  for (int step = 0; step < 20000; ++step) {
    const auto line = static_cast<Line>(random() % 40);
    const auto known = model.find(line);
    if (known == model.end()) {
      const Hash hash = hashes[random() % std::size(hashes)];
      Insert(index, hash, line, hash_of);
      model[line] = hash;
    } else if (random() % 4 == 0) {
      index.Replace(known->second, line, line + 1000);
      ASSERT_EQ(FindLine(index, known->second, line + 1000), line + 1000);
      index.Replace(known->second, line + 1000, line);
    } else {
      index.Erase(known->second, line, hash_of);
      model.erase(known);
    }
    for (Line other = 0; other < 40; ++other) {
      const auto there = model.find(other);
      const Line want = there == model.end() ? ConfIndex::kNone : other;
      for (const Hash hash : hashes) {
        const bool here = there != model.end() && there->second == hash;
        ASSERT_EQ(FindLine(index, hash, other), here ? want : ConfIndex::kNone) << "step " << step;
      }
    }
  }
}

TEST(ConfIndex, HoldsLinesUpToTheLimit) {
  ConfIndex index(0);
  const Line last = ConfIndex::kLimit - 1;
  const auto hash_of = [](Line line) { return ~line; };
  for (const Line line : {Line{0}, last}) Insert(index, hash_of(line), line, hash_of);
  EXPECT_EQ(FindLine(index, hash_of(0), 0), 0U);
  EXPECT_EQ(FindLine(index, hash_of(last), last), last);
  EXPECT_EQ(FindLine(index, hash_of(last) - 1, last), ConfIndex::kNone);
}

// Homes at the table's end, so that probing goes on at its beginning.
TEST(ConfIndex, TheFirstLineThatMayHaveAHashIsGiven) {
  const Hash hashes[] = {~Hash{0xFF}, ~Hash{0xFE}, ~Hash{0xFD}};
  const auto hash_of = [&](Line line) { return hashes[line % 3]; };
  ConfIndex index(4);
  EXPECT_EQ(index.First(hashes[0]), ConfIndex::kNone);
  for (Line line = 0; line < 3; ++line) Insert(index, hashes[line], line, hash_of);
  for (Line line = 0; line < 3; ++line) EXPECT_EQ(index.First(hashes[line]), line);
  Insert(index, hashes[1], 7, hash_of);
  EXPECT_EQ(index.First(hashes[1]), 1U);
  index.Erase(hashes[1], 1, hash_of);
  EXPECT_EQ(index.First(hashes[1]), 7U);
  EXPECT_EQ(index.First(~Hash{0xFC}), ConfIndex::kNone);
}

TEST(ConfIndex, AHashTellsTheSizeOfAName) {
  const ConfIndex index(0);
  for (std::size_t size = 0; size < 300; ++size) {
    const Hash want = size < ConfIndex::kLongName ? size : ConfIndex::kLongName;
    EXPECT_EQ(index.Hash(std::string(size, 'x')) & 0xFF, want) << size;
  }
}

TEST(ConfIndex, AllIndexesHashAlike) {
  ConfIndex late;
  late = ConfIndex(7);
  EXPECT_EQ(late.Hash("name"), ConfIndex(0).Hash("name"));
}

// Whole steps of 16 bytes, parts of one, and the sizes between them.
TEST(ConfIndex, HashesDependOnEveryByteAndOnTheLength) {
  const ConfIndex index(0);
  std::set<Hash> hashes;
  std::size_t texts = 0;
  const auto add = [&](const std::string& text) {
    const Hash hash = index.Hash(text);
    EXPECT_EQ(index.Hash(std::string(text)), hash);
    hashes.insert(hash);
    ++texts;
  };
  for (std::size_t size = 0; size < 70; ++size) {
    add(std::string(size, '\0'));
    for (std::size_t at = 0; at < size; ++at) {
      std::string text(size, '\0');
      text[at] = 1;
      add(text);
    }
    EXPECT_EQ(hashes.size(), texts) << size;
  }
}

// The home comes from the upper bits, what is compared of a hash is its lower ones and the size. Of
// 10,000 texts about three pairs share 24 bits by chance.
TEST(ConfIndex, HashesOfNumberedNamesDifferAtBothEnds) {
  const ConfIndex index(0);
  for (const char* rest : {"", "x", "@d.org", "@d007.test", "@a-rather-long-name.example.org"}) {
    SCOPED_TRACE(rest);
    std::set<Hash> upper;
    std::set<Hash> lower;
    for (int number = 0; number < 10000; ++number) {
      const Hash hash = index.Hash(std::to_string(number) + rest);
      upper.insert(hash >> 40);
      lower.insert(hash >> 8 & 0xFFFFFF);
    }
    EXPECT_GT(upper.size(), 9950U);
    EXPECT_GT(lower.size(), 9950U);
  }
}

}  // namespace
