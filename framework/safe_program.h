#pragma once

#include <string>

#include "brisq_export.h"

namespace mgr_proc {

/// Why a program must not be started, or another file not be believed, by a process that can do
/// more than other users; empty when nothing speaks against it. Refused are a relative path with a
/// slash, and a file that somebody else could change or replace: it, every folder above it and
/// every link on the way must belong to root or to this process's user, and file and folders be
/// writable by no other user. Folders with the sticky bit may be, unless the file is missing there.
/// A file may be writable by the group root and by this process's own; which groups may write to
/// folders is the administrator's choice. A folder in which this program itself lies may belong to
/// anybody: its owner could replace the program. A file that is missing, and a name without a
/// slash, are not refused here. Any thread.
BRISQ_API std::string WhyUnsafe(const std::string& file);

/// Refuses a file that decides what this process does, such as a library, when it is not safe.
/// @param file  absolute
/// @throws mgr_err::Error "config" with the file as object, and the reason and the way out as value
BRISQ_API void RefuseUnsafe(const std::string& file);

}  // namespace mgr_proc
