#pragma once

#include "brisq_export.h"
#include "framework/conf_document.h"

/// Does to `target` what somebody did to `from` to get `to`.
///
/// Line by line: added lines are added at the end, removed ones are removed unless `target` has
/// changed them, and of changed ones those columns change that were changed. A line that `target`
/// has removed stays removed.
BRISQ_API void MergeEdit(ConfDocument& target, const ConfDocument& from, const ConfDocument& to);
