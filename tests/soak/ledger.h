#pragma once

#include <fstream>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "tests/soak/passwd_text.h"

namespace soak {

/// What one process of a run has seen, in a file that is read when all have ended. For one thread
/// at a time.
class Ledger {
 public:
  explicit Ledger(const std::string& path) : out_(path, std::ios::app) {}

  /// A name had another value on the disk than the one that was acknowledged last.
  void Differs(const std::string& name, const std::string& expected, const std::string& found);
  /// The editor put a value that it had read over one that came after its reading.
  void PutBack(const std::string& name, const std::string& newer, const std::string& written);
  /// The editor opened a file that had been removed before the opening was done: its edit of `name`
  /// went nowhere, whoever had removed it.
  void OpenedRemoved(const std::string& name);
  /// What the file must hold at the end.
  void Final(const std::string& name, const std::string& value);

 private:
  std::ofstream out_;
};

/// The ledgers of a run, read.
struct Account {
  struct Difference {
    std::string name;
    std::string expected;
    std::string found;
  };

  explicit Account(const std::vector<std::string>& ledgers);
  /// Compares what the file must hold with what it holds.
  void Compare(const Passwords& file);

  /// True when the editor itself has done it, by writing what it had read too early.
  bool DoneByEditor(const Difference& difference) const;

  std::vector<Difference> differences;
  std::vector<Difference> finals;
  std::set<std::tuple<std::string, std::string, std::string>> put_back;
  std::set<std::string> opened_removed;
};

/// The name that a hand edit gives to its line begins with this.
inline const std::string kHand = "hand-";

}  // namespace soak
