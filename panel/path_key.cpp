#include "panel/path_key.h"

#include "mgr_cf.h"
#include "mgr_err.h"

namespace brisq_panel {

std::string AbsolutePath(const std::string& key) {
  std::string path = mgr_cf::GetPath(key);
  if (path.empty() || path.front() != '/') {
    throw mgr_err::Error("config", key, "must be set to an absolute path in [path]");
  }
  return path;
}

}  // namespace brisq_panel
