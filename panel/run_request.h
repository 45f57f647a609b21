#pragma once

#include <functional>
#include <string>
#include <vector>

#include "framework/request.h"

namespace brisq_panel {

/// Does `work` as one request, with the database's write lock from its beginning, and commits it.
/// Requests whose process has died are recovered before. Returns the request's notes. INT, TERM and
/// HUP wait until all of it is done or taken back.
/// @throws what work or commit throws, after everything has been taken back; when something could
/// not be, the error says so behind its value
BRISQ_API std::vector<std::string> RunRequest(const std::string& name,
                                              const std::function<void(Request&)>& work);

}  // namespace brisq_panel
