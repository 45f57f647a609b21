#pragma once

#include <string>
#include <vector>

#include "brisq_export.h"

namespace brisq_panel {

/// Used space, as of the last refresh that got figures.
struct BRISQ_API Usage {
  struct Row {
    std::string address;
    int used_mb = 0;
    int quota_mb = 0;  ///< 0: no limit
  };
  std::vector<Row> rows;      ///< by domain and local part
  std::string as_of;          ///< when the figures were got, in UTC; empty when never
  long age_seconds = -1;      ///< how old they are; -1 when there are none
  std::string quota_problem;  ///< why the last refresh got none; empty when it did
};

/// Stored figures of the mailboxes whose address matches; all for an empty pattern.
/// @param pattern  an address, or a pattern with "*" (any text) and "?" (one character)
/// @throws mgr_err::Error "missed" with object "mailbox" for an address that is none; "value"
BRISQ_API Usage ShowUsage(const std::string& pattern);

}  // namespace brisq_panel
