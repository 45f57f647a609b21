#include "framework/safe_program.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <filesystem>
#include <system_error>

#include "framework/path_names.h"
#include "mgr_err.h"

namespace mgr_proc {

namespace {

// As the system does when it follows links.
constexpr int kMostLinks = 40;

bool IsOthers(const struct stat& state) { return state.st_uid != 0 && state.st_uid != ::geteuid(); }

bool IsForeignGroups(const struct stat& state) {
  return S_ISREG(state.st_mode) && (state.st_mode & S_IWGRP) != 0 && state.st_gid != 0 &&
         state.st_gid != ::getegid();
}

// Without links; empty when it can't be found.
std::string FolderOfThisLibrary() {
  Dl_info library{};
  std::error_code error;
  if (::dladdr(reinterpret_cast<void*>(&FolderOfThisLibrary), &library) == 0) {
    return {};
  }
  return std::filesystem::canonical(library.dli_fname, error).parent_path();
}

// The place, without links, has this program in it, at any depth.
bool HoldsThisProgram(const std::string& place) {
  static const std::string& own = *new std::string(FolderOfThisLibrary());
  return own == place || own.starts_with(place + "/");
}

// Walks to a program as the system does, link by link, and judges each step.
class Way {
 public:
  explicit Way(const std::string& program) : left_(program) {}

  std::string WhyUnsafe() {
    std::string why = JudgePlace();
    while (why.empty() && links_ <= kMostLinks && path_names::Take(left_, name_)) {
      why = TakeStep();
    }
    return why;
  }

 private:
  std::string TakeStep() {
    if (name_ == ".") {
      return {};
    }
    if (name_ == "..") {
      at_.resize(at_.empty() ? 0 : at_.rfind('/'));
      return JudgePlace();
    }
    const std::string next = at_ + "/" + name_;
    struct stat state = {};
    if (::lstat(next.c_str(), &state) != 0) {
      // There is nothing to start. Where everybody may put something there could be in a moment.
      left_.clear();
      return everybody_adds_ ? next + " does not exist, and " + at_ + " is writable by other users"
                             : std::string();
    }
    if (S_ISLNK(state.st_mode)) {
      Follow(next);
      return IsOthers(state) ? next + " belongs to another user" : JudgePlace();
    }
    at_ = next;
    return JudgePlace();
  }

  void Follow(const std::string& link) {
    std::array<char, PATH_MAX> target{};
    const ssize_t size = ::readlink(link.c_str(), target.data(), target.size());
    const std::string text(target.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    left_.insert(0, text);
    at_.resize(text.starts_with('/') ? 0 : at_.size());
    ++links_;
  }

  // In a sticky folder everybody may add entries, but only the owner of one can replace it.
  std::string JudgePlace() {
    const std::string place = at_.empty() ? "/" : at_;
    struct stat state = {};
    if (::stat(place.c_str(), &state) != 0) {
      return {};
    }
    const bool open = (state.st_mode & S_IWOTH) != 0;
    everybody_adds_ = open && S_ISDIR(state.st_mode) && (state.st_mode & S_ISVTX) != 0;
    if (IsOthers(state) && !HoldsThisProgram(at_)) {
      return place + " belongs to another user";
    }
    if (IsForeignGroups(state)) {
      return place + " is writable by the group " + std::to_string(state.st_gid);
    }
    return open && !everybody_adds_ ? place + " is writable by other users" : std::string();
  }

  std::string left_;  // still to go
  std::string at_;    // without links; empty for the root
  std::string name_;
  bool everybody_adds_ = false;
  int links_ = 0;
};

}  // namespace

std::string WhyUnsafe(const std::string& file) {
  if (file.find('/') == std::string::npos) {
    return {};
  }
  if (file.front() != '/') {
    return file + " is no absolute path";
  }
  return Way(file).WhyUnsafe();
}

void RefuseUnsafe(const std::string& file) {
  const std::string why = WhyUnsafe(file);
  if (!why.empty()) {
    throw mgr_err::Error(
        "config", file,
        "not safe: " + why + "; only root may be able to change it: chown root and chmod go-w");
  }
}

}  // namespace mgr_proc
