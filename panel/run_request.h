#pragma once

#include <functional>
#include <string>
#include <vector>

#include "framework/request.h"

namespace brisq_panel {

/// Does `work` as one request, with the database's write lock from its beginning, and commits it.
/// Inside of another call of it on this thread it is a part of that one's request. Requests whose
/// process has died are recovered before. What was changed of objects that JobLog watches becomes a
/// job in the list. Returns the request's notes. INT, TERM and
/// HUP wait until all of it is done or taken back.
/// @throws what work or commit throws, after everything has been taken back; when something could
/// not be, the error says so behind its value
BRISQ_API std::vector<std::string> RunRequest(const std::string& name,
                                              const std::function<void(Request&)>& work);

}  // namespace brisq_panel
