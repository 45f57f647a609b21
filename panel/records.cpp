#include "panel/records.h"

#include <typeinfo>

#include "framework/database.h"
#include "framework/job_table.h"
#include "panel/archive.h"
#include "panel/file_stamps.h"
#include "panel/panel_state.h"

namespace brisq_panel {

std::shared_ptr<brisq_db::User> FindOwner(const std::string& name) {
  auto owner = Table<brisq_db::User>();
  if (!owner->DbFind({{"name", name}})) {
    throw mgr_err::Error("missed", "owner", name);
  }
  return owner;
}

std::shared_ptr<brisq_db::EmailDomainTable> FindDomain(const std::string& name) {
  auto domain = Table<brisq_db::EmailDomainTable>();
  if (!domain->DbFind({{"name", name}})) {
    throw mgr_err::Error("missed", "domain", name);
  }
  return domain;
}

std::shared_ptr<brisq_db::EmailTable> FindMailbox(const Address& address) {
  const mgr_err::Error missed("missed", "mailbox", address.Full());
  auto domain = Table<brisq_db::EmailDomainTable>();
  if (!domain->DbFind({{"name", address.domain}})) {
    throw missed;
  }
  auto email = Table<brisq_db::EmailTable>();
  if (!email->DbFind({{"domain", domain->id.AsString()}, {"name", address.local}})) {
    throw missed;
  }
  return email;
}

void CreatePanelTables() {
  mgr_db::CreateTables(brisq_db::GetCache(),
                       {typeid(brisq_db::User).name(), typeid(brisq_db::EmailDomainTable).name(),
                        typeid(brisq_db::EmailTable).name(), typeid(MailboxArchive).name(),
                        typeid(FileStamps).name(), typeid(PanelState).name()});
  job_table::Create();
}

}  // namespace brisq_panel
