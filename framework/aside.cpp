#include "framework/aside.h"

#include <fcntl.h>

#include <cerrno>

#include "framework/file_steps.h"
#include "framework/fingerprint.h"
#include "framework/random_hex.h"
#include "framework/request.h"
#include "framework/sys.h"
#include "mgr_file.h"

namespace aside {

std::string PathBeside(const std::string& target) {
  return mgr_file::ConcatPath(file_steps::DirectoryOf(target), ".brisq-job-" + RandomHex());
}

void Note(const std::string& target, const std::string& aside, const std::string& fresh,
          const std::string& what) {
  if (Request* request = Request::Current()) {
    request->NoteSteps({{"swap",
                         {{"path", target},
                          {"aside", aside},
                          {"old", fingerprint::At(target)},
                          {"new", fresh},
                          {"what", what}}}});
  }
}

void Remove(std::string& aside) noexcept {
  if (aside.empty()) {
    return;
  }
  if (sys::Unlink(AT_FDCWD, aside.c_str()) != 0 && errno != ENOENT &&
      Request::Current() != nullptr) {
    Request::Current()->KeepEntry();
  }
  aside.clear();
}

}  // namespace aside
