#pragma once

#include <string>

#include "brisq_export.h"
#include "framework/conf_stamp.h"
#include "mgr_db.h"

/// States of files, as refreshes saw them last.
namespace brisq_panel {

/// The recorded states, one row a file.
class BRISQ_API FileStamps : public mgr_db::CustomTable {
 public:
  FileStamps();

  mgr_db::IntField id;
  mgr_db::StringField path;  ///< unique
  mgr_db::StringField stamp;

  std::string Schema() const override;
};

/// A state as text: device, inode, size, and times of change in nanoseconds; empty for a missing
/// file.
BRISQ_API std::string StampText(const ConfStamp& stamp);

/// The state of a file at a path, from which every later change can be told: waits some
/// milliseconds after a change, as one that followed at once might look like it, and up to two
/// seconds where the file system keeps no more of times. Gives up after 2.5 seconds of changes.
/// @throws mgr_err::Error "file" when it can't be told
BRISQ_API ConfStamp SettledStamp(const std::string& path);

/// The recorded state; empty when there is none.
BRISQ_API std::string RecordedStamp(const std::string& path);

/// Records a state; an empty one is forgotten.
BRISQ_API void RecordStamp(const std::string& path, const std::string& stamp);

}  // namespace brisq_panel
