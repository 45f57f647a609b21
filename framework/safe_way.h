#pragma once

#include <sys/types.h>

#include <string>

#include "brisq_export.h"
#include "framework/descriptor.h"
#include "mgr_err.h"

/// Ways to directories along which no user can lead somebody who may do more. Any thread.
namespace safe_way {

/// Error "file" for an entry that must not be trusted: value "not safe: REASON".
BRISQ_API mgr_err::Error NotSafe(const std::string& path, const std::string& reason);

/// Opens the directory `name` in the directory `parent` for reading; follows no link.
/// @param path  of the entry, for errors
/// @throws mgr_err::Error "file": NotSafe when it is something else, or the system's refusal
BRISQ_API Descriptor OpenEntry(int parent, const std::string& name, const std::string& path);

/// What the mode of an entry says that it is, in words: "a symbolic link".
BRISQ_API const char* KindOf(mode_t mode);

/// Opens the directory at `path` for reading, going there from "/" component by component.
///
/// As long as nobody but root and this process's user could swap an entry of the way, their links
/// are followed, but for the last component, which must be no link. From the first directory of
/// `user` on, everything must be the user's and no link. Directories of others are refused, and
/// those of root that everybody may write to unless their sticky bit is set.
/// @param path  absolute, in normal form
/// @throws mgr_err::Error "file" with the entry's path: NotSafe, or the system's refusal
BRISQ_API Descriptor Open(const std::string& path, uid_t user);

/// Refuses a path that somebody else than root and this process's user could bend, now or when the
/// missing part of it is made.
/// @throws as Open, but for what is missing
BRISQ_API void RequireOurs(const std::string& path);

}  // namespace safe_way
