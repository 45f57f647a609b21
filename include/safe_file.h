#pragma once

#include <memory>
#include <string>

#include "brisq_export.h"
#include "mgr_file.h"

/// Work in users' directories as jobs of the current request.
namespace safe_file {

/// Queues a job that makes the directory `path` with `attrs` on behalf of `owner`, and its missing
/// parents with the same attributes, only below the owner's home, and returns the handle by which
/// later jobs reach it. An existing directory of the owner is left as it is. A symbolic link on the
/// way, and anything that belongs to somebody else, is refused when the job runs. Undone, the
/// directories that it made are removed, as far as they are empty.
///
/// @param path  absolute; two slashes in a row count as one
/// @throws mgr_err::Error "value" when `path` does not lie below the owner's home or has a ".." in
/// it; "internal" outside of a request
BRISQ_API mgr_file::safe::Folder JobCreateOddDirAbs(
    const std::shared_ptr<mgr_file::safe::Owner>& owner, const std::string& path,
    const mgr_file::Attrs& attrs);

}  // namespace safe_file
