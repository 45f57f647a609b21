#pragma once

#include <sys/stat.h>

#include <string>

#include "brisq_export.h"

/// Owner, mode, ACL and extended attributes of a file that is to take another one's place.
///
/// `to` must have been made with mode 0600 and be empty. At no moment more people can read it than
/// could read the old file, and than may read it in the end. Errors name `path`.
namespace file_metadata {

/// Gives `to` everything that `from` has, and nothing else.
/// @throws mgr_err::Error "file" when one of them can't be copied
BRISQ_API void Copy(int from, const struct stat& from_info, int to, const std::string& path);

/// What a file with mail users gets that did not exist before: 0640 root:dovecot where we may set
/// that and the group exists, else 0600 and the owner that it has; no ACL.
/// @throws mgr_err::Error "file"
BRISQ_API void SetFresh(int to, const std::string& path);

}  // namespace file_metadata
