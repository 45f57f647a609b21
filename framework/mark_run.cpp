#include "framework/mark_run.h"

namespace mgr_db {

bool MarkRun::Add(const std::string& table, const KnownRow& row,
                  const CustomTable::Match::value_type& change) {
  if (IsEmpty()) {
    change_ = change;
    first_ = row.id;
    table_ = table;
  } else if (table_ != table || change_ != change || last_ < row.after || row.id <= last_) {
    return false;
  }
  last_ = row.id;
  return true;
}

std::string MarkRun::Sql() const {
  return "UPDATE " + table_ + " SET " + change_.first + " = :v1 WHERE id BETWEEN :v2 AND :v3";
}

std::vector<std::string> MarkRun::Values() const {
  return {change_.second, std::to_string(first_), std::to_string(last_)};
}

}  // namespace mgr_db
