#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "brisq_export.h"

/// Differences between two contents of a passwd-file, for people. Any thread.
namespace brisq_panel {

/// Lines as a unified diff has them, without context: "@@ line N @@" of the old file before each
/// group, then "-OLD" and "+NEW". The second content must have come from the first by changing,
/// removing and adding lines, none of them moved. Empty for equal contents.
///
/// Hashes are masked: of the second column the scheme alone stays, then "***"; "*** (changed)"
/// stands for another hash than before.
BRISQ_API std::vector<std::string> DiffLines(std::string_view before, std::string_view after);

}  // namespace brisq_panel
