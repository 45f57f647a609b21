#include "framework/file_error.h"

#include <system_error>

#include "framework/sys.h"

namespace mgr_file {

mgr_err::Error FileError(const std::string& path, const std::string& call, int error) {
  return mgr_err::Error("file", path,
                        call + ": " + std::generic_category().message(error) + sys::Remedy(error));
}

}  // namespace mgr_file
