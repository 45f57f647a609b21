#pragma once

#include <memory>
#include <string>
#include <vector>

#include "brisq_db.h"
#include "brisq_export.h"
#include "mgr_db.h"
#include "panel/names.h"

/// What is kept of mailboxes that have left the panel's table.
namespace brisq_panel {

/// A mailbox that was. Names stand in it as texts, so that it outlives its domain and owner.
class BRISQ_API MailboxArchive : public mgr_db::CustomTable {
 public:
  MailboxArchive();
  std::string Schema() const override;

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
  mgr_db::StringField reason;    ///< kSwept, kDeleted, kSwitchedOff or kOffWithDomain
  mgr_db::StringField archived;  ///< time in UTC, "2024-01-31T23:59:59Z"
};

/// Copies the mailboxes that match an SQL condition on their table into the archive.
/// @param reason  one of MailboxArchive::reason
BRISQ_API void ArchiveMailboxes(const std::string& condition, const std::string& reason);

/// Reasons that are kept for mailboxes that can be restored, and for the line of one that was
/// switched off: by itself, so that it stays off, or because its domain was, with which it comes
/// back.
constexpr const char* kSwept = "swept";
constexpr const char* kDeleted = "deleted";
constexpr const char* kSwitchedOff = "switched off";
constexpr const char* kOffWithDomain = "switched off with its domain";

/// Copies one mailbox, whose row is posted, into the archive.
/// @param hash  of its password, as the mail server knew it; empty when that is not known
BRISQ_API void ArchiveMailbox(const std::shared_ptr<brisq_db::EmailTable>& mailbox,
                              const std::string& reason, const std::string& hash);

/// The archived states of an address for any of these reasons, latest first.
BRISQ_API std::vector<std::shared_ptr<MailboxArchive>> AllArchived(
    const Address& address, const std::vector<std::string>& reasons);

/// The latest archived state of an address for any of these reasons; null when there is none.
BRISQ_API std::shared_ptr<MailboxArchive> FindArchived(const Address& address,
                                                       const std::vector<std::string>& reasons);

/// What is kept of the line of an address that is switched off, for either reason; null when there
/// is none.
BRISQ_API std::shared_ptr<MailboxArchive> FindSwitchedOff(const Address& address);

/// Lets EmailTable take any number of rows while it lives, on its thread.
class BRISQ_API SweepPermit {
 public:
  SweepPermit();
  ~SweepPermit();
  SweepPermit(const SweepPermit&) = delete;
  SweepPermit& operator=(const SweepPermit&) = delete;

  static bool Given() noexcept;
};

/// True when at least one mailbox matches an SQL condition.
BRISQ_API bool IsAnyMailbox(const std::string& condition);

/// Refuses a sweep that would take more than "EmailSweepLimit" percent of the active mailboxes and
/// more than 10 of them.
/// @throws mgr_err::Error "limit"
BRISQ_API void RefuseLargeSweep(const std::string& condition);

}  // namespace brisq_panel
