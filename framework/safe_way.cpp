#include "framework/safe_way.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>

#include "framework/path_names.h"
#include "framework/sys.h"
#include "mgr_file.h"

namespace safe_way {

namespace {

constexpr int kDirectory = O_RDONLY | O_DIRECTORY | O_NOFOLLOW;
constexpr int kMostLinks = 40;  // as the system does

bool IsOurs(const struct stat& state) { return state.st_uid == 0 || state.st_uid == ::geteuid(); }

bool IsOpenToAll(const struct stat& state) {
  return (state.st_mode & S_IWOTH) != 0 && (state.st_mode & S_ISVTX) == 0;
}

// Tells why `name` could not be opened as a directory.
[[noreturn]] void Refuse(int parent, const std::string& name, const std::string& path) {
  const int error = errno;
  struct stat state = {};
  if (sys::Stat(parent, name.c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0 &&
      !S_ISDIR(state.st_mode)) {
    throw NotSafe(path, std::string("is ") + KindOf(state.st_mode));
  }
  errno = error;
  sys::Fail("open", path);
}

class Walk {
 public:
  Walk(const std::string& path, uid_t user) : left_(path), user_(user) {}

  Descriptor Go() {
    Enter(OpenEntry(AT_FDCWD, "/", "/"), "/");
    while (path_names::Take(left_, name_)) {
      TakeStep();
    }
    return std::move(at_);
  }

 private:
  void TakeStep() {
    if (name_ == ".") {
      return;
    }
    const std::string path =
        name_ == ".." ? mgr_file::SplitPath(where_).first : mgr_file::ConcatPath(where_, name_);
    struct stat state = {};
    if (sys::Stat(at_.get(), name_.c_str(), &state, AT_SYMLINK_NOFOLLOW) != 0) {
      sys::Fail("open", path);
    }
    if (!S_ISLNK(state.st_mode)) {
      return Enter(OpenEntry(at_.get(), name_, path), path);
    }
    const bool last = left_.find_first_not_of('/') == std::string::npos;
    if (last || of_user_ || !IsOurs(state)) {
      throw NotSafe(path, "is a symbolic link");
    }
    Follow(path);
  }

  void Follow(const std::string& path) {
    std::array<char, PATH_MAX> target{};
    const ssize_t size = sys::ReadLink(at_.get(), name_.c_str(), target.data(), target.size());
    if (size < 0 || ++links_ > kMostLinks) {
      errno = size < 0 ? errno : ELOOP;
      sys::Fail("open", path);
    }
    left_.insert(0, std::string(target.data(), static_cast<std::size_t>(size)) + "/");
    if (left_.starts_with('/')) {
      Enter(OpenEntry(AT_FDCWD, "/", "/"), "/");
    }
  }

  void Enter(Descriptor fd, const std::string& path) {
    struct stat state = {};
    if (sys::FStat(fd.get(), &state) != 0) {
      sys::Fail("stat", path);
    }
    if (of_user_ || !IsOurs(state)) {
      if (state.st_uid != user_) {
        throw NotSafe(path, "belongs to uid " + std::to_string(state.st_uid) + " instead of " +
                                std::to_string(user_));
      }
      of_user_ = true;
    } else if (IsOpenToAll(state)) {
      throw NotSafe(path, "everybody may write to it");
    }
    at_ = std::move(fd);
    where_ = path;
  }

  std::string left_;  // still to go
  const uid_t user_;
  Descriptor at_;
  std::string where_;  // path of `at_`
  std::string name_;
  bool of_user_ = false;  // what follows is in the user's hands
  int links_ = 0;
};

}  // namespace

mgr_err::Error NotSafe(const std::string& path, const std::string& reason) {
  return mgr_err::Error("file", path, "not safe: " + reason);
}

const char* KindOf(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFLNK:
      return "a symbolic link";
    case S_IFREG:
      return "a regular file";
    case S_IFDIR:
      return "a directory";
    case S_IFIFO:
      return "a pipe";
    case S_IFSOCK:
      return "a socket";
    default:
      return "a device";
  }
}

Descriptor OpenEntry(int parent, const std::string& name, const std::string& path) {
  Descriptor fd(sys::Open(parent, name.c_str(), kDirectory));
  if (!fd) {
    Refuse(parent, name, path);
  }
  return fd;
}

Descriptor Open(const std::string& path, uid_t user) { return Walk(path, user).Go(); }

void RequireOurs(const std::string& path) {
  std::string there = path;
  struct stat state = {};
  while (::stat(there.c_str(), &state) != 0 && errno == ENOENT && there != "/") {
    there = mgr_file::SplitPath(there).first;
  }
  Open(there + "/.", ::geteuid());
}

}  // namespace safe_way
