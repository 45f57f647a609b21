#pragma once

#include <string>

#include "brisq_export.h"
#include "mgr_file.h"

/// Steps on open files that several kinds of changes have in common. Errors are mgr_err::Error
/// "file" and name `path`.
namespace file_steps {

/// Sets exactly this mode and owner, whatever the umask was when the file was made.
BRISQ_API void SetAttrs(int fd, const mgr_file::Attrs& attrs, const std::string& path);

/// Makes the names in a directory durable. A file system that can't sync directories has nothing to
/// sync.
BRISQ_API void SyncDirectory(int fd, const std::string& path);

}  // namespace file_steps
