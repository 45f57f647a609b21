// Any work on a table, with what is read ahead and written later and without.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>

#include "framework/rehearsal.h"
#include "tests/support/log_capture.h"
#include "tests/support/sanitized.h"
#include "tests/support/temp_dir.h"
#include "tests/unit/framework/row_runs_fixture.h"

namespace {

using namespace row_runs;

// Random work on a table, noting all that it sees.
template <class Table>
class Play {
 public:
  explicit Play(unsigned seed) : random_(seed) {}

  std::string Run() {
    for (int round = 0; round < 6; ++round) {
      Scene();
      seen_ += "then " + std::to_string(std::hash<std::string>()(Content())) + "\n";
    }
    return seen_ + Content();
  }

 private:
  int Below(int limit) {
    return static_cast<int>(random_() % static_cast<std::mt19937::result_type>(limit));
  }

  void Scene() {
    switch (Below(4)) {
      case 0: {
        mgr_db::GroupedChanges group;
        return Work(150);
      }
      case 1:
        return InRequest(150);
      case 2: {
        const Rehearsal rehearsal;
        for (int part = 0; part < 3; ++part) {
          Work(20);
          InRequest(60);
        }
        return;
      }
      default:
        return Work(10);
    }
  }

  void InRequest(int steps) {
    Request request("play");
    if (Below(2) == 0) mgr_db::ThreadConnection()->LockForWriting();
    Work(steps);
    if (Below(3) != 0) request.Commit();
  }

  void Work(int steps) {
    for (int step = 0; step < steps; ++step) {
      try {
        Step(Below(2) == 0 ? one_ : other_);
      } catch (const mgr_err::Error& error) {
        seen_ += error.type() + " " + error.value() + "\n";
      }
    }
  }

  void Step(Table& table) {
    const int kind = Below(100);
    if (kind < 60) return Walk(table, Below(40));
    if (kind < 75) return Look(table, 1 + Below(70));
    if (kind < 80) return Change(table);
    if (kind < 84) return Post(table);
    if (kind < 87) return Select(table);
    if (kind < 90) return table.DbDelete();
    if (kind < 92) return table.DbDelete("tag = " + std::to_string(Below(6)) + " AND id % 5 = 0");
    if (kind < 94) return Add(table);
    if (kind < 97) return Sql();
    seen_ += Content();
  }

  // On from the last one, as a run over a file does, with lines that are missing or twice there.
  void Walk(Table& table, int count) {
    const int tag = Below(6);
    for (int i = 0; i < count; ++i) {
      at_ = Below(60) == 0 ? Below(70) : (at_ + 1) % 70;
      Look(table, at_);
      if (Below(12) == 0) continue;
      table.tag = Below(25) == 0 ? Below(6) : tag;
      if (Below(20) == 0) table.size = Below(3) - 1;
      Post(table);
      if (Below(20) == 0) Look(table, at_);
    }
  }

  void Look(Table& table, int number) {
    const bool found = Find(table, number);
    seen_ += std::to_string(found) + " " + table.id.AsString() + " " + std::string(table.name) +
             " " + table.size.AsString() + " " + table.tag.AsString() + "\n";
  }

  void Change(Table& table) {
    switch (Below(3)) {
      case 0:
        table.name = NameOf(Below(70));
        break;
      case 1:
        table.size = Below(4) - 1;
        break;
      default:
        table.id = 1 + Below(90);
        break;
    }
    Post(table);
  }

  static void Post(Table& table) { table.Post(); }

  void Select(Table& table) {
    for (table.DbSelect({{"tag", std::to_string(Below(6))}}); !table.Eof(); table.Next()) {
      seen_ += std::string(table.name) + ",";
    }
  }

  void Add(Table& table) {
    table.New();
    table.name = NameOf(Below(70));
    Post(table);
  }

  void Sql() {
    mgr_db::ThreadConnection()->Change(
        "UPDATE boxes SET size = size + 1, tag = tag + 1"
        " WHERE id = :v1",
        {std::to_string(Below(70))});
  }

  std::mt19937 random_;
  Table one_;
  Table other_;
  int at_ = 0;
  std::string seen_;
};

TEST(RowRuns, AnyWorkSeesAndLeavesTheSameAsStatementByStatement) {
  const support::LogCapture log;
  const support::TempDir dir;
  const unsigned short_run = support::kSanitized ? 4 : 12;
  const unsigned most = std::getenv("BRISQ_SOAK") == nullptr ? short_run : 400;
  for (unsigned seed = 1; seed <= most; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    MakeBoxes(dir / ("plain" + std::to_string(seed)), 60);
    const std::string expected = Play<Box>(seed).Run();
    MakeBoxes(dir / ("marked" + std::to_string(seed)), 60);
    const std::string seen = Play<MarkedBox>(seed).Run();
    mgr_db::CloseDatabase();
    const auto [left, right] =
        std::mismatch(expected.begin(), expected.end(), seen.begin(), seen.end());
    ASSERT_EQ(expected.size(), seen.size());
    ASSERT_TRUE(left == expected.end())
        << "expected: " << std::string(left, std::min(left + 200, expected.end()))
        << "\nseen: " << std::string(right, std::min(right + 200, seen.end()));
  }
}

}  // namespace
