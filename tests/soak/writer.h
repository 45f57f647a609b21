#pragma once

#include <functional>
#include <memory>
#include <string>

#include "tests/soak/board.h"
#include "tests/soak/store.h"

namespace soak {

using MakeStore = std::function<std::unique_ptr<Store>(const std::string& path)>;

/// Names of the mailboxes of one thread of one process; no other thread changes them.
std::string BoxName(int process, int thread, int box);
constexpr int kBoxes = 3;

/// A process that changes its threads' mailboxes until the run's updates are done. Before and after
/// each update it looks for the value on the disk, without the engine, and enters what differs into
/// its ledger.
void RunWriter(const Board& board, const MakeStore& make, int process, int threads,
               const std::string& ledger);

}  // namespace soak
