#pragma once

#include <string>
#include <string_view>

#include "brisq_export.h"
#include "mgr_file.h"

/// Steps on files and directories that several kinds of changes have in common. Errors are
/// mgr_err::Error "file" and name `path`.
namespace file_steps {

/// Sets exactly this mode and owner, whatever the umask was when the file was made.
BRISQ_API void SetAttrs(int fd, const mgr_file::Attrs& attrs, const std::string& path);

/// Writes all of `content`, in as many calls as the system needs.
/// @param state  what becomes of the file when that fails, as for sys::Fail
BRISQ_API void WriteAll(int fd, std::string_view content, const std::string& path,
                        const std::string& state = {});

/// Makes the names in a directory durable. A file system that can't sync directories has nothing to
/// sync.
BRISQ_API void SyncDirectory(int fd, const std::string& path);
/// The same of a directory that is not open.
BRISQ_API void SyncDirectoryAt(const std::string& directory, const std::string& path);

/// The directory in which the entry of this path stands: "." for a name alone.
BRISQ_API std::string DirectoryOf(const std::string& path);

}  // namespace file_steps
