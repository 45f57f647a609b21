#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "brisq_export.h"

/// The password hashes that the mail server's own file holds, so that a mailbox that is taken out
/// of it can come back with its password. The file is the one under the path key "dovecot-passwd".
namespace brisq_panel {

/// Hash in the line of this name, which may be empty; nothing when there is no such line.
/// @throws mgr_err::Error "file", "locked" when the file can't be read
BRISQ_API std::optional<std::string> StoredHash(const std::string& address);

/// True when the file holds the line of a mailbox, the panel's or another; without a path too.
/// @throws mgr_err::Error "file", "locked" when the file can't be read
BRISQ_API bool HasAnyLine();

/// Content of the file at `path` as the engine has it, the changes of this process included; empty
/// when it does not exist. Waits while somebody writes into it.
/// @throws mgr_err::Error "file", "locked" when the file can't be read
BRISQ_API std::string PasswdFileText(const std::string& path);

/// Calls `look` with the name and the hash of each line, in the file's order; with nothing when no
/// path is set.
/// @throws mgr_err::Error "file", "locked" when the file can't be read
BRISQ_API void EachHash(
    const std::function<void(const std::string& name, const std::string& hash)>& look);

/// Columns of a line by name, without that of the mailbox itself.
using LineValues = std::map<std::string, std::string>;

/// Columns of a line from its text: kHash, "uid", "gid", "info", "home", "shell", "flags", "mail".
BRISQ_API LineValues ValuesOfLine(std::string_view text);

/// Columns of the line of this name; empty when there is none.
/// @throws mgr_err::Error "file", "locked" when the file can't be read
BRISQ_API LineValues StoredLine(const std::string& address);

/// Gives the line of this name these columns; one that is missing is made, at the end of the file.
/// Taken back when the current request fails.
/// @throws as a post to the file does
BRISQ_API void StoreLine(const std::string& address, const LineValues& values);

/// Removes the line of this name if there is one; taken back when the current request fails.
/// @throws as a post to the file does
BRISQ_API void RemoveLine(const std::string& address);

/// Sets the hash in the line of this name; taken back when the current request fails.
/// @throws mgr_err::Error "missed" without such a line; as a post to the file does
BRISQ_API void StoreHash(const std::string& address, const std::string& hash);

}  // namespace brisq_panel
