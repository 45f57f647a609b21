#include "panel/path_key.h"

#include "framework/safe_program.h"
#include "mgr_cf.h"
#include "mgr_err.h"
#include "str.h"

namespace brisq_panel {

namespace {

std::string WhyUnsafe(const std::string& key) {
  const std::string command = str::Trim(mgr_cf::GetPath(key));
  return mgr_proc::WhyUnsafe(command.substr(0, command.find(' ')));
}

}  // namespace

std::string AbsolutePath(const std::string& key) {
  std::string path = mgr_cf::GetPath(key);
  if (path.empty() || path.front() != '/') {
    throw mgr_err::Error("config", key, "must be set to an absolute path in [path]");
  }
  return path;
}

void RefuseUnsafeProgram(const std::string& key) {
  const std::string why = WhyUnsafe(key);
  if (!why.empty()) {
    throw mgr_err::Error("config", key, "not safe: " + why);
  }
}

bool IsSafeProgram(const std::string& key) { return WhyUnsafe(key).empty(); }

}  // namespace brisq_panel
