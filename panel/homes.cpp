#include "panel/homes.h"

#include "framework/database.h"
#include "panel/text_rules.h"

namespace brisq_panel {

namespace {

using Row = mgr_db::Connection::Row;

// By ranges of the index on homes: "0" is the character that follows "/".
constexpr const char* kOthers =
    "SELECT mailboxes.name || '@' || domains.name FROM mailboxes"
    " JOIN domains ON domains.id = mailboxes.domain"
    " WHERE mailboxes.id != CAST(:v1 AS INTEGER) AND ";

std::string First(const std::string& condition, const Row& values) {
  const auto rows = mgr_db::ThreadConnection()->Query(kOthers + condition + " LIMIT 1", values, 1);
  return rows.empty() ? std::string() : rows.front().front();
}

// The nearest of those whose home holds this one.
std::string AroundIt(const std::string& home, const std::string& id) {
  Row values = {id};
  std::string parents;
  for (std::size_t slash = home.rfind('/'); slash != 0 && slash != std::string::npos;
       slash = home.rfind('/', slash - 1)) {
    values.push_back(home.substr(0, slash));
    parents += (parents.empty() ? ":v" : ", :v") + std::to_string(values.size());
  }
  return First("mailboxes.home IN (" + parents + ") ORDER BY length(mailboxes.home) DESC", values);
}

void RefuseIf(const std::string& address, const std::string& rule) {
  if (!address.empty()) {
    throw Refused("home", rule + " " + address);
  }
}

}  // namespace

void CheckHomeIsFree(const std::string& home, int mailbox) {
  const std::string id = std::to_string(mailbox);
  RefuseIf(First("mailboxes.home = :v2", {id, home}), "is already that of");
  RefuseIf(First("mailboxes.home > :v2 AND mailboxes.home < :v3", {id, home + "/", home + "0"}),
           "holds the home of");
  RefuseIf(AroundIt(home, id), "lies in the home of");
}

}  // namespace brisq_panel
