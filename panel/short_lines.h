#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "brisq_export.h"
#include "framework/conf_document.h"

/// Lines of the passwd-file that have a name and fewer columns than a mailbox: cut short, as a
/// rule. They are kept byte for byte and are no mailboxes, but Dovecot takes them for users. Any
/// thread.
namespace brisq_panel {

struct BRISQ_API ShortLine {
  std::string name;
  std::string place;    ///< "PATH, line N"
  std::string problem;  ///< what is wrong with it, without a full stop; never its hash
};

/// What is wrong with a line of this name and text.
BRISQ_API std::string ShortLineProblem(std::string_view name, std::string_view text);

/// What ends it, in words for people.
inline constexpr const char* kShortLineFix =
    "complete the line or take it out with \"brisq passwd-file edit\"";

/// All of them in the file's order, of names that no mailbox's line has.
/// @param path  for the places alone
BRISQ_API std::vector<ShortLine> ShortLines(const std::string& path, const ConfDocument& document);

/// The one that stands in the place of a mailbox's line; nothing when the name has a whole line or
/// none at all.
/// @param path  for the place alone
BRISQ_API std::optional<ShortLine> FindShortLine(const std::string& path,
                                                 const ConfDocument& document,
                                                 const std::string& name);

/// Refuses to go on when such a line stands in the place of a mailbox's line in the file under the
/// path key "dovecot-passwd": names file, line, what is wrong and what ends it. Reads the whole
/// file, so it is for who has looked for the line in vain.
/// @throws mgr_err::Error "file", also when it can't be read; "locked"
BRISQ_API void RefuseShortLine(const std::string& address);

}  // namespace brisq_panel
