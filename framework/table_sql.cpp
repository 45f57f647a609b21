#include "framework/table_sql.h"

#include <algorithm>

#include "mgr_err.h"

namespace mgr_db::table_sql {

namespace {

void RequireColumn(const CustomTable& table, const std::string& name) {
  if (std::none_of(table.Fields().begin(), table.Fields().end(),
                   [&](const Field* field) { return field->name() == name; })) {
    throw mgr_err::Error("internal", table.TableName(), "has no column of this name");
  }
}

std::string Columns(const CustomTable& table) {
  std::string names;
  for (const Field* field : table.Fields()) {
    names += (names.empty() ? "" : ", ") + field->name();
  }
  return names;
}

// "name = :v1" of each pair.
std::string Terms(const CustomTable& table, const CustomTable::Match& pairs, const char* between) {
  std::string terms;
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    RequireColumn(table, pairs[i].first);
    terms += (i == 0 ? "" : between) + pairs[i].first + " = :v" + std::to_string(i + 1);
  }
  return terms;
}

std::string From(const CustomTable& table) {
  return "SELECT " + Columns(table) + " FROM " + table.TableName();
}

}  // namespace

std::string Select(const CustomTable& table, const CustomTable::Match& match,
                   const std::string& order) {
  RequireColumn(table, order);
  return From(table) + (match.empty() ? "" : " WHERE " + Terms(table, match, " AND ")) +
         " ORDER BY " + order;
}

std::string SelectAfter(const CustomTable& table, long long after, std::size_t most) {
  return From(table) + " WHERE id > " + std::to_string(after) + " ORDER BY id LIMIT " +
         std::to_string(most);
}

std::string Update(const CustomTable& table, const CustomTable::Match& changes) {
  return "UPDATE " + table.TableName() + " SET " + Terms(table, changes, ", ") + " WHERE id = :v" +
         std::to_string(changes.size() + 1);
}

std::vector<std::string> ValuesOf(const CustomTable::Match& pairs) {
  std::vector<std::string> values;
  values.reserve(pairs.size() + 1);
  for (const auto& [column, value] : pairs) {
    values.push_back(value);
  }
  return values;
}

}  // namespace mgr_db::table_sql
