#pragma once

#include <string>

#include "brisq_export.h"
#include "mgr_db.h"

/// What is kept of mailboxes that have left the panel's table.
namespace brisq_panel {

/// A mailbox that was. Names stand in it as texts, so that it outlives its domain and owner.
class BRISQ_API MailboxArchive : public mgr_db::CustomTable {
 public:
  MailboxArchive();

  mgr_db::IntField id;
  mgr_db::StringField name;    ///< local part
  mgr_db::StringField domain;  ///< name
  mgr_db::StringField owner;   ///< name
  mgr_db::SealedField password;
  mgr_db::SealedField hash;  ///< as the mail server knew it; empty when that is not known
  mgr_db::StringField home;
  mgr_db::StringField quota;
  mgr_db::IntField used;
  mgr_db::BoolField active;
  mgr_db::StringField reason;    ///< "swept" or "deleted"
  mgr_db::StringField archived;  ///< time in UTC, "2024-01-31T23:59:59Z"
};

/// Copies the mailboxes that match an SQL condition on their table into the archive.
/// @param reason  one of MailboxArchive::reason
BRISQ_API void ArchiveMailboxes(const std::string& condition, const std::string& reason);

/// Lets EmailTable take any number of rows while it lives, on its thread.
class BRISQ_API SweepPermit {
 public:
  SweepPermit();
  ~SweepPermit();
  SweepPermit(const SweepPermit&) = delete;
  SweepPermit& operator=(const SweepPermit&) = delete;

  static bool Given() noexcept;
};

/// Refuses a sweep that would take more than "EmailSweepLimit" percent of the active mailboxes and
/// more than 10 of them.
/// @throws mgr_err::Error "limit"
BRISQ_API void RefuseLargeSweep(const std::string& condition);

}  // namespace brisq_panel
