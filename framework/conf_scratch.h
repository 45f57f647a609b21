#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "brisq_export.h"
#include "framework/conf_stamp.h"

/// What configuration files hold in a dry run once something was saved into them, by their paths:
/// it stands in for the disk, so that all who open a path see one content. In memory alone. Any
/// thread.
class BRISQ_API ConfScratch {
 public:
  /// Nothing for a file that was never saved here: the disk counts.
  std::optional<ConfContent> Find(const std::string& path) const;
  /// Keeps the content and returns the stamp by which it is known.
  ConfStamp Keep(const std::string& path, std::string_view content);

 private:
  mutable std::mutex mutex_;
  std::map<std::string, ConfContent> contents_;
  ino_t saves_ = 0;
};
