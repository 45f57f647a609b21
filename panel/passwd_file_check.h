#pragma once

#include <string>
#include <vector>

#include "brisq_export.h"
#include "panel/findings.h"

/// Checks of Dovecot's passwd-file as a whole. Only looks.
namespace brisq_panel {

/// What the file itself shows, its lines apart. Nothing is found for one that does not exist.
///
/// | code | severity | |
/// |---|---|---|
/// | PASSWD-KIND | error | not a regular file; it is not opened |
/// | PASSWD-DANGLING | error | a symbolic link to nothing |
/// | PASSWD-UNREADABLE | error | Dovecot's user can't read it, so every login is refused |
/// | PASSWD-WRITABLE | error | everybody may change it |
/// | PASSWD-READABLE | warning | everybody may read it, hashes included |
/// | PASSWD-OWNER | warning | a user of the system other than root owns it and may change it |
/// | PASSWD-DIRECTORY | error | everybody may replace it, because of its directory's mode |
/// | PASSWD-LINKS | error | it has further names (hard links), so it can't be replaced |
/// | PASSWD-IMMUTABLE | error | it is immutable, so it can't be replaced |
/// | PASSWD-MOUNT | error | it is mounted by itself, so it can't be replaced |
///
/// Whether Dovecot's user can read it is asked of the system, ACLs and the directories above
/// included; that needs root and a user "dovecot".
///
/// @param path  absolute; links are followed
/// @throws mgr_err::Error "file" when its state can't be told
BRISQ_API std::vector<Finding> CheckFileItself(const std::string& path);

/// True when the mode or group of the file itself, and no directory above it, keeps Dovecot's user
/// out. Asks the system as CheckFileItself does; false where that can't be asked.
BRISQ_API bool FileKeepsDovecotOut(const std::string& path);

/// Everything there is to find about the instance's passwd-file, the one under the path key
/// "dovecot-passwd": the file, its lines, and its names against the panel's mailboxes. The lines of
/// a file that is no file are not looked at; a missing file is found (PASSWD-MISSING) when there
/// are mailboxes that should be in it.
/// @throws mgr_err::Error "file"; "locked" when somebody does not end writing into it; "db"
BRISQ_API std::vector<Finding> CheckPasswdFile();

}  // namespace brisq_panel
