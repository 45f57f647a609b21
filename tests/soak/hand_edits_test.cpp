#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/soak/board.h"
#include "tests/soak/figures.h"
#include "tests/soak/hand_editor.h"
#include "tests/soak/ledger.h"
#include "tests/soak/store.h"
#include "tests/soak/writer.h"
#include "tests/support/temp_dir.h"

/// Processes with threads that change a passwd-file while somebody edits it by hand.
namespace {

using soak::Account;
using soak::Print;

constexpr int kProcesses = 8;
constexpr int kThreads = 4;
constexpr long kMostShown = 10;
constexpr std::array<const char*, soak::HandEditor::kStyles> kStyleNames = {
    "append", "slow append", "in place", "sed -i", "mv"};

struct Outcome {
  long updates = 0;
  long edits = 0;
  long lost_updates = 0;
  long put_back = 0;
  std::array<long, soak::HandEditor::kStyles> lost_edits{};
  long opened_removed = 0;
  std::vector<std::string> leftovers;

  long LostEdits() const {
    long sum = 0;
    for (const long lost : lost_edits) sum += lost;
    return sum;
  }
};

std::string FirstContent() {
  std::string text = "# mailboxes\n";
  for (int process = 0; process < kProcesses; ++process) {
    for (int thread = 0; thread < kThreads; ++thread) {
      for (int box = 0; box < soak::kBoxes; ++box)
        text += soak::LineOf(soak::BoxName(process, thread, box), "0");
    }
  }
  return text;
}

void Judge(const Account& account, const Account::Difference& difference, Outcome& outcome) {
  const bool by_editor = account.DoneByEditor(difference);
  if (!difference.name.starts_with(soak::kHand)) {
    ++(by_editor ? outcome.put_back : outcome.lost_updates);
    if (!by_editor && outcome.lost_updates <= kMostShown) {
      std::printf("lost: %s: acknowledged %s, found %s\n", difference.name.c_str(),
                  difference.expected.c_str(), difference.found.c_str());
    }
    return;
  }
  if (by_editor) return;
  if (account.opened_removed.contains(difference.name)) {
    ++outcome.opened_removed;
    return;
  }
  const long number = std::strtol(difference.name.c_str() + soak::kHand.size(), nullptr, 10);
  ++outcome.lost_edits[static_cast<std::size_t>(number) % kStyleNames.size()];
}

Outcome RunBoth(const soak::MakeStore& make, long updates, long edits) {
  const support::TempDir folder;
  const support::TempDir ledgers;
  const soak::Board board(folder.Write("users", FirstContent()), updates, edits);
  soak::Children children;
  std::vector<std::string> paths{ledgers / "editor"};
  children.Start([&] { soak::HandEditor(board, paths[0]).Run(); });
  for (int process = 0; process < kProcesses; ++process) {
    paths.push_back(ledgers / ("writer-" + std::to_string(process)));
    children.Start([&] { soak::RunWriter(board, make, process, kThreads, paths.back()); });
  }
  EXPECT_EQ(children.Wait(), 0);
  Account account(paths);
  account.Compare(board.Look());
  Outcome outcome;
  outcome.updates = board.shared().updates;
  outcome.edits = board.shared().edits;
  for (const auto& difference : account.differences) Judge(account, difference, outcome);
  Print("updates refused", board.shared().refused);
  for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
    outcome.leftovers.push_back(entry.path().filename());
  return outcome;
}

void PrintAll(const Outcome& outcome) {
  Print("updates acknowledged", outcome.updates);
  Print("updates lost", outcome.lost_updates);
  Print("updates put back by an editor that had read before them", outcome.put_back);
  Print("edits by hand", outcome.edits);
  for (std::size_t style = 0; style < kStyleNames.size(); ++style) {
    Print((std::string("edits lost, ") + kStyleNames[style]).c_str(), outcome.lost_edits[style]);
  }
  Print("edits lost because their editor opened a removed file", outcome.opened_removed);
}

TEST(HandEdits, NoneIsLostBesideManyWritersAndNoUpdateIs) {
  const long updates = soak::Scaled(100'000, 4'000);
  const long edits = updates / 10;
  const Outcome outcome = RunBoth(soak::MakeEngineStore, updates, edits);
  PrintAll(outcome);
  EXPECT_GE(outcome.updates, updates);
  EXPECT_GE(outcome.edits, edits);
  EXPECT_EQ(outcome.lost_updates, 0);
  EXPECT_EQ(outcome.LostEdits(), 0);
  EXPECT_LE(outcome.opened_removed, 2 + edits / 10'000);
  EXPECT_EQ(outcome.leftovers.size(), 2U) << "more than the file and its lock";
}

// The control: the same run finds what lock, check and rename lose.
TEST(HandEdits, SomeAreLostByWhoLocksLooksAndRenames) {
  const Outcome outcome = RunBoth(soak::MakeRenamingStore, 1000, 100);
  PrintAll(outcome);
  EXPECT_GT(outcome.LostEdits(), 0);
}

}  // namespace
