#pragma once

#include <array>
#include <deque>
#include <string>

#include "tests/soak/board.h"
#include "tests/soak/ledger.h"

namespace soak {

/// An administrator who edits a passwd-file by hand, in five ways in turn. Each edit adds a line of
/// its own; those that write the whole file also remove old ones of these lines that they have
/// read. An edit looks at the file anew, as who opens an editor does, and knows of no lock.
class HandEditor {
 public:
  enum class Style { kAppend, kSlowAppend, kInPlace, kSedI, kMv };
  static constexpr int kStyles = 5;

  HandEditor(const Board& board, const std::string& ledger) : board_(board), ledger_(ledger) {}

  /// Makes all edits of the run.
  void Run();

 private:
  void Edit(long number);
  void Append(const std::string& name, bool slowly);
  void InPlace(const std::string& name);
  void Rename(const std::string& name, bool looks_before);
  bool TryRename(const std::string& name, bool looks_before);
  std::string Edited(const std::string& text, const std::string& name);
  void Adopt(const std::string& name);
  void NotePutBack(const std::string& read, const std::string& out, const std::string& written);

  const Board& board_;
  Ledger ledger_;
  std::deque<std::string> live_;      // lines that the file must have
  std::deque<std::string> removing_;  // by the edit that goes on
};

}  // namespace soak
