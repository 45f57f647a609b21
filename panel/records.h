#pragma once

#include <memory>
#include <string>

#include "brisq_db.h"
#include "mgr_err.h"
#include "panel/names.h"

/// Finding records. The tables that are returned stand on the row and go back to the stock when
/// they are let go. Any thread.
namespace brisq_panel {

template <class T>
std::shared_ptr<T> Table() {
  return brisq_db::GetCache().Get<T>();
}

/// @throws mgr_err::Error "missed" with object "owner"
BRISQ_API std::shared_ptr<brisq_db::User> FindOwner(const std::string& name);

/// @param name  in stored form
/// @throws mgr_err::Error "missed" with object "domain"
BRISQ_API std::shared_ptr<brisq_db::EmailDomainTable> FindDomain(const std::string& name);

/// @throws mgr_err::Error "missed" with object "mailbox"
BRISQ_API std::shared_ptr<brisq_db::EmailTable> FindMailbox(const Address& address);

/// Version of the database's data that this program writes, and the latest that it knows.
constexpr int kDataVersion = 2;

/// Makes the panel's tables where they are missing, brings data of an earlier version to
/// kDataVersion and marks the database with that (SQLite's user_version), in one transaction. The
/// thread has no request.
/// @throws mgr_err::Error "db" that names the file when its data is of a later version: nothing has
/// changed; as the database otherwise
BRISQ_API void CreatePanelTables();

}  // namespace brisq_panel
