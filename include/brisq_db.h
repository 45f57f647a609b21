#pragma once

#include <memory>
#include <string>

#include "brisq_export.h"
#include "mgr_db.h"
#include "mgr_file.h"

/// The panel's records.
namespace brisq_db {

/// An owner of domains and mailboxes: a user of the system.
class BRISQ_API User : public mgr_db::CustomTable, public mgr_file::safe::Owner {
 public:
  User();
  ~User() override;

  mgr_db::IntField id;
  mgr_db::StringField name;  ///< unique
  mgr_db::IntField uid;      ///< never 0
  mgr_db::IntField gid;      ///< never 0
  mgr_db::StringField home;  ///< absolute and normalised

  uid_t OwnerUid() const override;
  gid_t OwnerGid() const override;
  std::string OwnerHome() const override;
  std::string Schema() const override;
};

/// A mail domain.
class BRISQ_API EmailDomainTable : public mgr_db::CustomTable {
 public:
  EmailDomainTable();
  ~EmailDomainTable() override;

  mgr_db::IntField id;
  mgr_db::StringField name;  ///< unique, in A-labels and lower case
  mgr_db::IntField owner;    ///< id of a User
  mgr_db::BoolField active;
  mgr_db::StringField cert;  ///< path of the certificate file; empty without one
  mgr_db::StringField key;   ///< path of the key file; empty without one

  std::string Schema() const override;
};

/// A mailbox.
class BRISQ_API EmailTable : public mgr_db::CustomTable {
 public:
  EmailTable();
  ~EmailTable() override;

  mgr_db::IntField id;
  mgr_db::StringField name;      ///< local part, in lower case; unique within its domain
  mgr_db::IntField domain;       ///< id of an EmailDomainTable
  mgr_db::IntField owner;        ///< id of a User
  mgr_db::SealedField password;  ///< empty when a password back-end keeps the password
  mgr_db::BoolField pwupdate;    ///< on while a request changes the password
  mgr_db::StringField home;      ///< absolute and normalised; may be empty until a refresh fills it
  mgr_db::StringField quota;     ///< whole megabytes; empty or "0" for no limit
  mgr_db::IntField used;         ///< megabytes, as of the last refresh
  mgr_db::BoolField active;
  mgr_db::IntField tag;  ///< mark of the last refresh that saw the mailbox

  using mgr_db::CustomTable::DbDelete;
  /// Refuses, with mgr_err::Error "limit", to take more than "EmailSweepLimit" percent of the
  /// active rows (and more than 10 rows), unless the sweep was allowed; keeps the rows that it
  /// takes in the archive.
  void DbDelete(const std::string& condition) override;
  std::string Schema() const override;
};

/// The panel's stock of table objects.
BRISQ_API mgr_db::Cache& GetCache();

/// True when the file differs from its state when the last refresh ended well (size, time stamps or
/// identity). A missing file has not changed. The new state is recorded by the refresh, not here.
/// @param text  output; says in words what differs, empty when nothing does
BRISQ_API bool FileIsChanged(const std::string& path, std::string& text);

}  // namespace brisq_db
