#include "framework/later_jobs.h"

#include <algorithm>
#include <string_view>

#include "framework/job_table.h"

namespace {

std::vector<std::string> PathsOf(const journal::Step& object) {
  std::vector<std::string> paths;
  for (const auto& [name, value] : object.values) {
    if (value.starts_with('/')) {
      paths.push_back(value);
    }
  }
  return paths;
}

bool LiesIn(const std::string& path, const std::string& folder) {
  return path == folder || path.starts_with(folder + "/");
}

}  // namespace

LaterJobs::LaterJobs(int job) {
  for (const job_table::Job& later : job_table::DoneAfter(job)) {
    for (std::string_view rest = later.changes; !rest.empty();) {
      const std::string_view line = rest.substr(0, rest.find('\n'));
      rest.remove_prefix(std::min(line.size() + 1, rest.size()));
      const journal::Step object = journal::FromText(line);
      objects_.push_back({later.id, object.Value("name"), PathsOf(object)});
    }
  }
}

int LaterJobs::Touching(const journal::Step& step) const {
  const std::string& path = step.Value("path");
  const auto touches = [&](const Object& object) {
    if (path.empty()) {
      return object.name == step.Value("name");
    }
    return (!object.name.empty() && path.find(object.name) != std::string::npos) ||
           std::any_of(object.paths.begin(), object.paths.end(),
                       [&](const std::string& folder) { return LiesIn(path, folder); });
  };
  const auto found = std::find_if(objects_.begin(), objects_.end(), touches);
  return found == objects_.end() ? 0 : found->job;
}
