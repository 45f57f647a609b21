#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "brisq_export.h"
#include "framework/journal_record.h"

/// Taking back changes of single lines of a configuration file that a dead process has made. Texts
/// are whole lines without their end.
namespace line_undo {

/// One change of a line, as the journal keeps it.
struct Change {
  std::string name;    ///< of the line
  std::string before;  ///< its text before; empty for a line that was added
  std::string after;   ///< its text afterwards; empty for one that was removed
  std::string behind;  ///< text of the line in front of a removed one; empty for none
  bool operator==(const Change&) const = default;
};

/// The change as a step of the journal; texts of lines, which hold hashes, are sealed.
/// @param key    the same for every note of one change
/// @throws mgr_err::Error as mgr_seal::Seal
BRISQ_API journal::Step ToStep(const Change& change, const std::string& file,
                               const std::string& what, const std::string& key);
/// @throws mgr_err::Error as mgr_seal::Open
BRISQ_API Change FromStep(const journal::Step& step);

/// The content of the file without these changes, and why some of them stand.
struct Undone {
  std::string content;
  bool changed = false;
  std::vector<std::string> left;  ///< names of lines that somebody else has changed since
};

/// Takes changes back, the last one first. A line that is neither as a change has left it nor as it
/// was before is somebody else's and stays.
BRISQ_API Undone Undo(std::string content, const std::vector<Change>& changes, char separator);

struct Outcome {
  bool changed = false;
  std::vector<std::string> left;  ///< as in Undone
};

/// The same with a file, durably; an edit by somebody else at the same moment stays. A file that is
/// as it should be is not written.
/// @throws mgr_err::Error "file", "locked": the file is as it was
BRISQ_API Outcome UndoInFile(const std::string& file, const std::vector<Change>& changes);

}  // namespace line_undo
