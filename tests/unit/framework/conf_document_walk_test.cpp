#include <gtest/gtest.h>

#include <memory>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "framework/conf_document.h"

namespace {

using Line = ConfDocument::Line;

constexpr Line kNone = ConfDocument::kNone;
constexpr Line kLines = 40;

// Lines of three bytes, and some that are added behind them.
class Walked {
 public:
  Walked() : document_(std::make_shared<ConfBytes>(Bytes()), mgr_token::Params{}) {
    for (Line line = 0; line < kLines; ++line) numbers_.push_back(3 * line);
    for (int added = 0; added < 5; ++added) {
      numbers_.push_back(document_.Extend());
      document_.Put(numbers_.back(), "x\n");
    }
    present_.insert(numbers_.begin(), numbers_.end());
  }

  const std::vector<Line>& numbers() const { return numbers_; }
  void Remove(Line line) {
    document_.Put(line, {});
    present_.erase(line);
  }
  void PutBack(Line line) {
    document_.Put(line, "y\n");
    present_.insert(line);
  }
  void Turn(Line line) { present_.contains(line) ? Remove(line) : PutBack(line); }

  void ExpectWalkedAsThere() const {
    for (Line line = 0; line <= document_.End(); ++line) {
      const auto next = present_.lower_bound(line);
      ASSERT_EQ(document_.NextLine(line), next == present_.end() ? kNone : *next) << line;
      ASSERT_EQ(document_.LineBefore(line), next == present_.begin() ? kNone : *std::prev(next))
          << line;
    }
  }

 private:
  static std::string Bytes() {
    std::string bytes;
    for (Line line = 0; line < kLines; ++line) bytes += "a:\n";
    return bytes;
  }

  ConfDocument document_;
  std::vector<Line> numbers_;
  std::set<Line> present_;
};

TEST(ConfDocumentWalk, GoesAroundLinesThatAreGoneInWhateverOrderTheyWent) {
  std::vector<std::size_t> order(kLines + 5);
  std::iota(order.begin(), order.end(), 0);
  const std::vector<std::size_t> reversed(order.rbegin(), order.rend());
  std::vector<std::size_t> mixed = order;
  std::shuffle(mixed.begin(), mixed.end(), std::mt19937{7});
  std::vector<std::size_t> from_the_middle(order.begin() + 20, order.end());
  from_the_middle.insert(from_the_middle.end(), reversed.end() - 20, reversed.end());
  for (const auto& removed : {order, reversed, mixed, from_the_middle}) {
    for (const auto& back : {order, reversed, mixed}) {
      Walked walked;
      for (const std::size_t at : removed) {
        walked.Remove(walked.numbers()[at]);
        walked.ExpectWalkedAsThere();
      }
      for (const std::size_t at : back) {
        walked.PutBack(walked.numbers()[at]);
        walked.ExpectWalkedAsThere();
      }
    }
  }
}

TEST(ConfDocumentWalk, GoesAroundLinesThatComeAndGo) {
  std::mt19937 random(11);
  Walked walked;
  std::size_t at = 0;
  for (int change = 0; change < 3000; ++change) {
    // Mostly a neighbour of the last one.
    at = random() % 4 == 0 ? random() : at + random() % 3 - 1;
    at %= walked.numbers().size();
    walked.Turn(walked.numbers()[at]);
    walked.ExpectWalkedAsThere();
  }
}

}  // namespace
