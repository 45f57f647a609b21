#pragma once

#include <string>

#include "brisq_export.h"

namespace mgr_proc {

/// Why a program must not be started by a process that can do more than other users; empty when
/// nothing speaks against it. Refused are a relative path with a slash, and a program that somebody
/// else could replace: it, every folder above it and every link on the way must belong to root or
/// to this process's user, and file and folders be writable by no other user. Folders with the
/// sticky bit may be, unless the program is missing there. What a group may write is the
/// administrator's choice. A program that is missing, and a name without a slash, are not refused
/// here. Any thread.
BRISQ_API std::string WhyUnsafe(const std::string& program);

}  // namespace mgr_proc
