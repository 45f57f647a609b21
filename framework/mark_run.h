#pragma once

#include <string>

#include "brisq_export.h"
#include "framework/known_rows.h"

namespace mgr_db {

/// Marks that are owed to the database: one value in one column of rows that follow each other in
/// a table. Empty when nothing is.
class BRISQ_API MarkRun {
 public:
  bool IsEmpty() const noexcept { return table_.empty(); }
  /// True when rows of this table are owed a mark.
  bool IsOf(const std::string& table) const noexcept { return !IsEmpty() && table_ == table; }

  /// Takes in one more row, as a longer run or, when the run is empty, as a new one. False when it
  /// belongs to neither: the run is as it was.
  /// @param change  column and value
  bool Add(const std::string& table, const KnownRow& row,
           const CustomTable::Match::value_type& change);

  /// The statement that writes the marks, with three values.
  std::string Sql() const;
  std::vector<std::string> Values() const;

  void Clear() noexcept { table_.clear(); }

 private:
  std::string table_;
  CustomTable::Match::value_type change_;
  long long first_ = 0;
  long long last_ = 0;
};

}  // namespace mgr_db
