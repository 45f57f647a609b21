#pragma once

#include <map>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "brisq/command.h"

namespace brisq {

using Value = std::variant<std::string, long, bool>;
/// Named values in the order in which they are shown.
using Record = std::vector<std::pair<std::string, Value>>;

/// What a command has to say: data for standard output, all else for standard error. Nothing of the
/// data is written before Finish, so that a command that fails half way leaves standard output
/// empty.
class Output {
 public:
  Output(const Console& console, bool json) : console_(console), json_(json) {}

  /// One row of a list.
  void Row(Record record) { Add(std::move(record), Layout::kTable); }
  /// One thing shown at length.
  void Show(Record record) { Add(std::move(record), Layout::kList); }
  /// Data for people only when there is nothing to parse: a bare line, in JSON part of `record`.
  void Bare(const std::string& line, Record record);
  /// Data that people have been told in words already: only JSON holds it.
  void Silent(Record record) { records_.push_back(std::move(record)); }
  /// The same, apart from the data, in a list of this name.
  void Beside(const std::string& list, Record record) {
    beside_[list].push_back(std::move(record));
  }
  /// What is to be said when the data can't be written, as a command that is done can't be undone.
  void IfLost(const std::string& advice) { advice_ = advice; }
  /// That standard output can't be written, with the advice for that.
  std::string Loss() const;
  /// A line for the person at the keyboard; none with JSON.
  void Say(const std::string& line);
  /// A line that matters although the command goes on; in JSON also in "warnings".
  void Warn(const std::string& line);

  /// From now on everything said is marked as what would be.
  void BeginDryRun() { dry_run_ = true; }
  /// Says what a dry run has found; in JSON part of "dry_run".
  void WouldHappen(const std::string& effect);

  /// Writes the data.
  void Finish();

 private:
  enum class Layout { kTable, kList, kBare };
  void Add(Record record, Layout layout);
  void WriteJson() const;
  void WriteTable() const;
  void WriteList() const;

  const Console& console_;
  bool json_;
  bool dry_run_ = false;
  Layout layout_ = Layout::kTable;
  std::vector<Record> records_;                        // for JSON
  std::vector<Record> rows_;                           // for people
  std::map<std::string, std::vector<Record>> beside_;  // for JSON, by the list's name
  std::vector<std::string> bare_;
  std::vector<std::string> warnings_;
  std::vector<std::string> effects_;
  std::string advice_;
};

}  // namespace brisq
