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

/// Makes the panel's tables where they are missing.
BRISQ_API void CreatePanelTables();

}  // namespace brisq_panel
