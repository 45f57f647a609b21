#pragma once

#include <string>

#include "brisq_export.h"
#include "framework/conf_document.h"

/// Does to `target` what somebody did to `from` to get `to`.
///
/// Line by line: added lines are added at the end, removed ones are removed unless `target` has
/// changed them, and of changed ones those columns change that were changed. A line that `target`
/// has removed stays removed.
BRISQ_API void MergeEdit(ConfDocument& target, const ConfDocument& from, const ConfDocument& to);

/// Names, parted by ", ", of the lines that somebody changed, added or removed between `from` and
/// `to` and that `target` holds otherwise than `from` in the same columns: MergeEdit would give up
/// what `target` has, or what `to` has. Of more than five the first five and "...".
BRISQ_API std::string EditConflicts(const ConfDocument& target, const ConfDocument& from,
                                    const ConfDocument& to);
