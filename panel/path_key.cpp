#include "panel/path_key.h"

#include "framework/safe_program.h"
#include "mgr_cf.h"
#include "mgr_err.h"
#include "str.h"

namespace brisq_panel {

std::string AbsolutePath(const std::string& key) {
  std::string path = mgr_cf::GetPath(key);
  if (path.empty() || path.front() != '/') {
    throw mgr_err::Error("config", key, "must be set to an absolute path in [path]");
  }
  return path;
}

void RefuseUnsafeProgram(const std::string& key) {
  const std::string command = str::Trim(mgr_cf::GetPath(key));
  const std::string why = mgr_proc::WhyUnsafe(command.substr(0, command.find(' ')));
  if (!why.empty()) {
    throw mgr_err::Error("config", key, "not safe: " + why);
  }
}

}  // namespace brisq_panel
