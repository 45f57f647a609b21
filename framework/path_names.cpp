#include "framework/path_names.h"

#include <algorithm>

namespace path_names {

bool Take(std::string& path, std::string& name) {
  const std::size_t from = path.find_first_not_of('/');
  if (from == std::string::npos) {
    return false;
  }
  const std::size_t end = std::min(path.find('/', from), path.size());
  name = path.substr(from, end - from);
  path.erase(0, end);
  return true;
}

}  // namespace path_names
