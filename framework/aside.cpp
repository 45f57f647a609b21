#include "framework/aside.h"

#include <fcntl.h>

#include <cerrno>

#include "framework/file_steps.h"
#include "framework/fingerprint.h"
#include "framework/random_hex.h"
#include "framework/request.h"
#include "framework/sys.h"
#include "mgr_err.h"
#include "mgr_file.h"

namespace aside {

namespace {

constexpr const char* kStart = ".brisq-job-";

}  // namespace

std::string PathBeside(const std::string& target) {
  return mgr_file::ConcatPath(file_steps::DirectoryOf(target), kStart + RandomHex());
}

bool IsName(const std::string& name) {
  const std::string start = kStart;
  if (!name.starts_with(start)) {
    return false;
  }
  const std::size_t end = name.find_first_not_of("0123456789abcdef", start.size());
  return end == std::string::npos || (end > start.size() && name.substr(end) == kOldEnd);
}

void Note(const std::string& target, const std::string& aside, const std::string& fresh,
          const std::string& what, std::string& noted) {
  Request* request = Request::Current();
  if (request == nullptr) {
    return;
  }
  const std::string old = fingerprint::At(target);
  if (old == noted) {
    return;
  }
  request->NoteSteps({{"swap",
                       {{"path", target},
                        {"aside", aside},
                        {"key", aside},
                        {"old", old},
                        {"new", fresh},
                        {"what", what}}}});
  noted = old;
}

void MakeDurable(const std::string& directory, const std::function<void()>& restore) {
  try {
    file_steps::SyncDirectoryAt(directory, directory);
  } catch (...) {
    try {
      restore();
    } catch (const mgr_err::Error&) {
      // The first failure is the one to report; a recovery takes back what stays.
      Request::KeepCurrentEntry();
    }
    throw;
  }
}

void Remove(std::string& aside) noexcept {
  if (aside.empty()) {
    return;
  }
  if (sys::Unlink(AT_FDCWD, aside.c_str()) != 0 && errno != ENOENT) {
    Request::KeepCurrentEntry();
  }
  aside.clear();
}

}  // namespace aside
