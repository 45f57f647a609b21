#pragma once

#include <string>
#include <vector>

#include "brisq_export.h"
#include "mgr_db.h"

/// SQL for the operations of table objects. Values are never part of it, but marked ":v1", ":v2",
/// ... in the order of ValuesOf.
///
/// Every function throws mgr_err::Error "internal" for a column that the table has not: columns
/// come from the program, and must not become SQL when it is wrong.
namespace mgr_db::table_sql {

/// All columns of the rows that match, in the order of Fields().
/// @param order  column to sort by
BRISQ_API std::string Select(const CustomTable& table, const CustomTable::Match& match,
                             const std::string& order);

/// All columns of rows whose number is above `after`, in the order of the numbers.
BRISQ_API std::string SelectAfter(const CustomTable& table, long long after, std::size_t most);

/// Sets columns of the row whose number is the value behind those of `changes`.
BRISQ_API std::string Update(const CustomTable& table, const CustomTable::Match& changes);

/// The second halves of the pairs.
BRISQ_API std::vector<std::string> ValuesOf(const CustomTable::Match& pairs);

}  // namespace mgr_db::table_sql
