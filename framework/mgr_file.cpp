#include "mgr_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>

#include "framework/descriptor.h"
#include "framework/file_error.h"
#include "framework/file_steps.h"
#include "framework/read_at_most.h"
#include "framework/rehearsal.h"

namespace mgr_file {

namespace {

// A part of the way that is missing or no directory says that nothing exists at the path; so do
// links that lead nowhere, in a circle or to a name that can't be, which any owner of one can make.
bool SaysMissing(int error, bool follow_links) {
  return error == ENOENT || error == ENOTDIR ||
         (follow_links && (error == ELOOP || error == ENAMETOOLONG));
}

bool IsMissing(const std::string& path, bool follow_links) {
  struct stat status {};
  const int result = follow_links ? ::stat(path.c_str(), &status) : ::lstat(path.c_str(), &status);
  if (result == 0) {
    return false;
  }
  if (!SaysMissing(errno, follow_links)) {
    throw FileError(path, follow_links ? "stat" : "lstat");
  }
  return true;
}

void SetAttributes(const std::string& path, const Attrs& attrs) {
  const Descriptor directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!directory) {
    throw FileError(path, "open");
  }
  file_steps::SetAttrs(directory.get(), attrs, path);
  file_steps::SyncDirectory(directory.get(), path);
}

// Refuses what mkdir(2) would.
void RehearseMkDir(Rehearsal& rehearsal, const std::string& path) {
  const std::string parent = SplitPath(path).first;
  if (!IsMissing(path, false)) {
    throw FileError(path, "mkdir", EEXIST);
  }
  if (!rehearsal.HasDirectory(parent) && IsMissing(parent.empty() ? "." : parent, true)) {
    throw FileError(path, "mkdir", ENOENT);
  }
  rehearsal.AddDirectory(path);
}

}  // namespace

bool Exists(const std::string& path) { return !IsMissing(path, true); }

void MkDir(const std::string& path, const Attrs& attrs) {
  if (Rehearsal* rehearsal = Rehearsal::Current()) {
    return RehearseMkDir(*rehearsal, path);
  }
  if (::mkdir(path.c_str(), 0700) != 0) {
    throw FileError(path, "mkdir");
  }
  try {
    SetAttributes(path, attrs);
    file_steps::SyncDirectoryAt(file_steps::DirectoryOf(path), path);
  } catch (...) {
    ::rmdir(path.c_str());
    throw;
  }
}

std::string ConcatPath(const std::string& directory, const std::string& name) {
  if (directory.empty()) {
    return name;
  }
  const std::size_t last = directory.find_last_not_of('/');
  const std::size_t length = last == std::string::npos ? 0 : last + 1;
  return directory.substr(0, length) + "/" +
         name.substr(std::min(name.find_first_not_of('/'), name.size()));
}

std::pair<std::string, std::string> SplitPath(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) {
    return {"", path};
  }
  const std::size_t last = path.find_last_not_of('/', slash);
  // Of the root directory nothing but its slash would be left.
  return {last == std::string::npos ? "/" : path.substr(0, last + 1), path.substr(slash + 1)};
}

std::string ReadE(const std::string& path) {
  return ReadAtMost(path, std::numeric_limits<std::size_t>::max());
}

bool RemoveFile(const std::string& path) noexcept {
  Rehearsal* const rehearsal = Rehearsal::Current();
  if (rehearsal == nullptr) {
    return ::unlink(path.c_str()) == 0;
  }
  struct stat status {};
  const bool there = ::lstat(path.c_str(), &status) == 0 && !S_ISDIR(status.st_mode);
  if (there) {
    rehearsal->AddRemoved(path);
  }
  return there;
}

Info::Info(const std::string& path, int mode) : missed_(false) {
  if (mode != 1 && mode != 2) {
    throw mgr_err::Error("internal", "mgr_file::Info", "mode " + std::to_string(mode));
  }
  missed_ = IsMissing(path, mode == 2);
}

struct Dir::Handle {
  explicit Handle(DIR* stream_) : stream(stream_) {}
  ~Handle() { ::closedir(stream); }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  DIR* stream;
};

Dir::Dir(const std::string& path) : path_(path) {
  if (DIR* stream = ::opendir(path.c_str()); stream != nullptr) {
    handle_ = std::make_unique<Handle>(stream);
  } else if (errno != ENOENT) {
    throw FileError(path, "opendir");
  }
}

Dir::~Dir() = default;

bool Dir::Read() {
  name_.clear();
  while (handle_) {
    errno = 0;
    const dirent* entry = ::readdir(handle_->stream);
    if (entry == nullptr) {
      if (errno != 0) {
        throw FileError(path_, "readdir");
      }
      handle_.reset();
      return false;
    }
    name_ = entry->d_name;
    if (name_ != "." && name_ != "..") {
      return true;
    }
  }
  name_.clear();
  return false;
}

bool Dir::HasExt(const std::string& extension) const {
  return name_.size() > extension.size() && name_.ends_with(extension);
}

std::string Dir::FullName() const { return ConcatPath(path_, name_); }

}  // namespace mgr_file
