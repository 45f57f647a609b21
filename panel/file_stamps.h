#pragma once

#include <string>

#include "brisq_export.h"
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

/// The state of a file: device, inode, size, and times of change in nanoseconds; empty when it is
/// missing.
/// @throws mgr_err::Error "file" when that can't be told
BRISQ_API std::string CurrentStamp(const std::string& path);

/// The recorded state; empty when there is none.
BRISQ_API std::string RecordedStamp(const std::string& path);

/// Records a state; an empty one is forgotten.
BRISQ_API void RecordStamp(const std::string& path, const std::string& stamp);

}  // namespace brisq_panel
