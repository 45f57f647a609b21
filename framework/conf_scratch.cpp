#include "framework/conf_scratch.h"

std::optional<ConfContent> ConfScratch::Find(const std::string& path) const {
  const std::lock_guard lock(mutex_);
  const auto kept = contents_.find(path);
  return kept == contents_.end() ? std::nullopt : std::optional(kept->second);
}

ConfStamp ConfScratch::Keep(const std::string& path, std::string_view content) {
  const std::lock_guard lock(mutex_);
  ConfStamp stamp;
  stamp.exists = true;
  stamp.inode = ++saves_;
  stamp.size = static_cast<off_t>(content.size());
  contents_[path] = {stamp, std::make_shared<ConfBytes>(content), true};
  return stamp;
}
