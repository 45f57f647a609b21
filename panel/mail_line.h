#pragma once

#include <memory>
#include <string>

#include "brisq_db.h"
#include "brisq_export.h"

/// The part of a mailbox that lies with the back-ends: its line in the mail server's file, with the
/// password. Steps of the current request; each throws what the back-ends throw, in the user's
/// words where they name columns of their own, and "plugin" when no mail back-end is at work. A
/// password that was to be set and is not what stands in the line afterwards is an error of type
/// "email". The record stands on a row that is posted.
namespace brisq_panel {

using Mailbox = std::shared_ptr<brisq_db::EmailTable>;

/// Makes the line of a new mailbox.
/// @throws mgr_err::Error "exists" when the mail server has one of this name
BRISQ_API void MakeLine(Mailbox& mailbox, const std::string& password);

/// Makes the line of a mailbox that comes back, with the password that the panel keeps, else with
/// `hash` when that is not empty. A line that is there already keeps its password when the panel
/// keeps none. True when it can be logged in to afterwards.
BRISQ_API bool BringLineBack(Mailbox& mailbox, const std::string& hash);

/// Brings the line into line with the row.
BRISQ_API void ChangeLine(Mailbox& mailbox);

/// Removes the line and returns the hash that was in it; empty when it had none.
BRISQ_API std::string TakeLineOut(Mailbox& mailbox);

/// Sets the password, in the line and, sealed, in the row when no password back-end keeps it.
BRISQ_API void SetLinePassword(Mailbox& mailbox, const std::string& password);

}  // namespace brisq_panel
