#pragma once

#include <string>
#include <unordered_map>

#include "brisq_export.h"

namespace brisq_panel {

/// Remembers the hashes in the mail server's file, so that a refresh that pushes the panel's
/// passwords can't ruin them: when the mail server's tool fails in silence, every line would get
/// nothing, an error or the clear text. Does nothing where the panel keeps no passwords, and
/// without a path "dovecot-passwd". For the thread that made it.
class BRISQ_API HashGuard {
 public:
  /// @throws mgr_err::Error "file" and "locked" when the file can't be read
  HashGuard();

  /// Gives each line whose hash has changed since into something that is none its old one back.
  /// @return what was wrong with the first of them; empty when there was none
  /// @throws as a post to the file does
  std::string PutBack() const;

 private:
  std::unordered_map<std::string, std::string> hashes_;  // by name
};

}  // namespace brisq_panel
