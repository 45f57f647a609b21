#pragma once

#include <array>
#include <memory>
#include <string>

#include "brisq_db.h"
#include "brisq_export.h"
#include "mgr_file.h"

/// Where a mailbox's mail lies: HOME/.maildir with the folders "new", "cur" and "tmp", 0700 and the
/// owner's.
namespace brisq_panel {

constexpr std::array<const char*, 3> kMaildirFolders = {"new", "cur", "tmp"};

/// @param home  of the mailbox
/// @throws mgr_err::Error "value" when it does not lie below the owner's
BRISQ_API mgr_file::safe::Folder MaildirOf(const brisq_db::User& owner, const std::string& home);

/// True when there is a message in the Maildir, of an earlier mailbox with this home for example:
/// something lies in its "new" or "cur". Reads no further than that. False when the way to it is
/// not safe or the system does not let look.
BRISQ_API bool HoldsMail(const brisq_db::User& owner, const std::string& home);

/// True when the Maildir or one of its folders is missing.
/// @throws mgr_err::Error "value" as above; "file" when the way to it is not safe or the system
/// does not say
BRISQ_API bool IsMaildirMissing(const brisq_db::User& owner, const std::string& home);

/// Tells the current request's JobLog of the directories that are missing up to a whole Maildir.
/// @throws as above: nothing is told
BRISQ_API void DeclareMaildir(const brisq_db::User& owner, const std::string& home);

/// Queues jobs of the current request that make what is missing of a Maildir; what is there stays
/// as it is. Tells the request's JobLog of them.
/// @throws as above: nothing is queued or told
BRISQ_API void MakeMaildir(const std::shared_ptr<brisq_db::User>& owner, const std::string& home);

}  // namespace brisq_panel
