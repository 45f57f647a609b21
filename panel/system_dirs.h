#pragma once

#include <string>
#include <vector>

#include "framework/journal_record.h"
#include "mgr_file.h"

/// Directories of the system, whose way belongs to root alone.
namespace brisq_panel {

/// Makes `path` with `last` and its missing parents with `parents`; what is there is left as it is.
/// Returns what was made, outermost first.
/// @throws mgr_err::Error "file": what was made by then is removed again
BRISQ_API std::vector<std::string> MakeDirectories(const std::string& path,
                                                   const mgr_file::Attrs& parents,
                                                   const mgr_file::Attrs& last);

/// What the journal must know before MakeDirectories is called: one step for each directory that is
/// missing, outermost first.
BRISQ_API std::vector<journal::Step> StepsOfMaking(const std::string& path);

/// Removes directories in reverse order, as far as they are empty. For what the system refuses the
/// entry of the thread's request stays in the journal.
BRISQ_API void RemoveDirectories(const std::vector<std::string>& directories) noexcept;

}  // namespace brisq_panel
