#pragma once

#include <string>
#include <vector>

#include "brisq_export.h"

/// What an instance keeps that was sealed with its key. Nothing is opened. Any thread.
namespace brisq_panel {

/// A sealed text.
struct BRISQ_API SealedText {
  std::string where;  ///< in words: "the latest archived mailbox", for example
  std::string text;
};

/// All kept passwords of mailboxes.
/// @throws mgr_err::Error "db"
BRISQ_API std::vector<SealedText> SealedPasswords();

/// The latest of each other place: the archive, the list of jobs, and each entry of the journal. A
/// new key may have been made since older ones, on purpose.
/// @throws mgr_err::Error "db"; "file" when the journal can't be read
BRISQ_API std::vector<SealedText> LatestSealedTexts();

/// True when there is any of these, so that a fresh key would hide that theirs is lost.
/// @throws as the others
BRISQ_API bool AnySealedText();

}  // namespace brisq_panel
