#include "framework/user_dir.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <string_view>
#include <utility>

#include "framework/file_steps.h"
#include "framework/path_names.h"
#include "framework/request.h"
#include "framework/safe_way.h"
#include "framework/sys.h"
#include "mgr_err.h"

namespace mgr_file::safe {

Owner::~Owner() = default;

Folder::Folder(std::string root, std::string path, uid_t uid, gid_t gid)
    : root_(std::move(root)), path_(std::move(path)), uid_(uid), gid_(gid) {}

}  // namespace mgr_file::safe

namespace user_dir {

namespace {

thread_local KeepWay* kept_way = nullptr;

}  // namespace

KeepWay::KeepWay() noexcept : outer_(std::exchange(kept_way, this)) {}

KeepWay::~KeepWay() { kept_way = outer_; }

// One way to a folder, component by component.
class Walk {
 public:
  /// Stands at the folder's root, or as far on the way as the last walk has come.
  explicit Walk(const mgr_file::safe::Folder& folder);

  /// The next component below, which is to be opened or made; false at the folder.
  bool Take() {
    if (taken_ == left_.size()) {
      return false;
    }
    name_ = left_[taken_++];
    next_ = mgr_file::ConcatPath(path_, name_);
    return true;
  }
  const std::string& name() const noexcept { return name_; }
  const std::string& next() const noexcept { return next_; }  ///< path of what was taken
  int at() const noexcept { return at_.get(); }

  /// Goes on to what was taken.
  void Enter(Descriptor next) {
    at_ = std::move(next);
    path_ = next_;
  }
  /// Ends where it stands, which the next one may begin at.
  Descriptor End();

 private:
  const mgr_file::safe::Folder& folder_;
  Descriptor at_;
  std::string path_;  // of `at_`
  std::vector<std::string> left_;
  std::size_t taken_ = 0;
  std::string name_;
  std::string next_;
};

namespace {

using safe_way::KindOf;
using safe_way::NotSafe;
using safe_way::OpenEntry;

mgr_err::Error BadPath(const std::string& path, const std::string& rule) {
  return mgr_err::Error("value", path, rule);
}

std::vector<std::string> Components(std::string path) {
  std::vector<std::string> components;
  for (std::string name; path_names::Take(path, name);) {
    components.push_back(name);
  }
  return components;
}

// The part of the folder's path below its root. Both are in normal form.
std::vector<std::string> ComponentsBelowRoot(const mgr_file::safe::Folder& folder) {
  const std::string& root = folder.root();
  const std::string inside = root == "/" ? root : root + "/";
  if (folder.path() == root) {
    return {};
  }
  if (!folder.path().starts_with(inside)) {
    throw BadPath(folder.path(), "does not lie below " + root);
  }
  return Components(folder.path().substr(root.size()));
}

struct stat StateOf(int fd, const std::string& path) {
  struct stat state = {};
  if (sys::FStat(fd, &state) != 0) {
    sys::Fail("stat", path);
  }
  return state;
}

void CheckOwner(uid_t is, uid_t wanted, const std::string& path) {
  if (is != wanted) {
    throw NotSafe(path,
                  "belongs to uid " + std::to_string(is) + " instead of " + std::to_string(wanted));
  }
}

Descriptor OpenRoot(const mgr_file::safe::Folder& folder) {
  return safe_way::Open(folder.root(), folder.uid());
}

// With a place of its own for who reads the directory.
Descriptor OpenAgain(int directory) {
  return Descriptor(sys::Open(directory, ".", O_RDONLY | O_DIRECTORY));
}

bool LeadsTo(const std::string& path, const std::string& folder) {
  return folder == path || folder.starts_with(path == "/" ? path : path + "/");
}

Descriptor OpenOwned(int parent, const std::string& name, const std::string& path, uid_t uid) {
  Descriptor fd = OpenEntry(parent, name, path);
  CheckOwner(StateOf(fd.get(), path).st_uid, uid, path);
  return fd;
}

// Reads on from where the descriptor stands, which is the beginning of a directory just opened.
bool IsEmpty(int fd, const std::string& path) {
  constexpr std::size_t kRoom = 1024;  // bytes; one entry takes 280 at most
  alignas(dirent64) std::array<char, kRoom> entries;
  for (;;) {
    const ssize_t size = ::getdents64(fd, entries.data(), entries.size());
    if (size < 0) {
      sys::Fail("read", path);
    }
    if (size == 0) {
      return true;
    }
    for (ssize_t at = 0; at < size;) {
      const auto* entry = reinterpret_cast<const dirent64*>(entries.data() + at);
      const std::string_view name = entry->d_name;
      if (name != "." && name != "..") {
        return false;
      }
      at += entry->d_reclen;
    }
  }
}

// The user may have put another directory in the place of the new one. An empty one of our own does
// nobody harm when it becomes the user's, who could remove it and make another.
void CheckIsNew(int fd, const std::string& path) {
  if (StateOf(fd, path).st_uid != ::geteuid() || !IsEmpty(fd, path)) {
    throw NotSafe(path, "was swapped while it was made");
  }
}

// One wait for the disk does for all directories of a request.
void MakeDurable(int directory, const std::string& path) {
  if (Request* request = Request::Current()) {
    request->SyncBeforeCommit(directory, path);
  } else {
    file_steps::SyncDirectory(directory, path);
  }
}

struct Fresh {
  Descriptor fd;
  Made made;
};

Fresh Finish(int parent, const std::string& name, const std::string& path,
             const mgr_file::Attrs& attrs) {
  Descriptor fd = OpenEntry(parent, name, path);
  CheckIsNew(fd.get(), path);
  file_steps::SetAttrs(fd.get(), attrs, path);
  MakeDurable(fd.get(), path);
  MakeDurable(parent, path);
  const struct stat state = StateOf(fd.get(), path);
  return {std::move(fd), {path, state.st_dev, state.st_ino}};
}

// Nothing when the name is taken.
std::optional<Fresh> TryMake(int parent, const std::string& name, const std::string& path,
                             const mgr_file::Attrs& attrs) {
  // Closed to everybody until owner and mode are set.
  if (sys::MkDir(parent, name.c_str(), 0700) != 0) {
    if (errno == EEXIST) {
      return std::nullopt;
    }
    sys::Fail("mkdir", path);
  }
  try {
    return Finish(parent, name, path, attrs);
  } catch (...) {
    // At worst an empty directory that the user has put there.
    if (sys::RmDir(parent, name.c_str()) != 0 && errno != ENOENT) {
      Request::KeepCurrentEntry();
    }
    throw;
  }
}

void RemoveAll(const mgr_file::safe::Folder& folder, const std::vector<Made>& made) noexcept {
  std::for_each(made.rbegin(), made.rend(), [&folder](const Made& directory) {
    try {
      Remove(folder, directory);
    } catch (const mgr_err::Error&) {
      // The failure that led here is the one to report; a recovery removes what stays.
      Request::KeepCurrentEntry();
    }
  });
}

void MakeComponents(const mgr_file::safe::Folder& folder, const mgr_file::Attrs& attrs,
                    std::vector<Made>& made) {
  Walk walk(folder);
  while (walk.Take()) {
    if (std::optional<Fresh> fresh = TryMake(walk.at(), walk.name(), walk.next(), attrs)) {
      made.push_back(std::move(fresh->made));
      walk.Enter(std::move(fresh->fd));
    } else {
      walk.Enter(OpenOwned(walk.at(), walk.name(), walk.next(), folder.uid()));
    }
  }
  walk.End();
}

// The folder as far as it exists; nothing when some of it does not.
std::optional<Descriptor> OpenIfThere(const mgr_file::safe::Folder& folder) {
  Descriptor at = OpenRoot(folder);
  std::string path = folder.root();
  for (const std::string& name : ComponentsBelowRoot(folder)) {
    path = mgr_file::ConcatPath(path, name);
    struct stat state = {};
    if (sys::Stat(at.get(), name.c_str(), &state, AT_SYMLINK_NOFOLLOW) != 0 && errno == ENOENT) {
      return std::nullopt;
    }
    at = OpenOwned(at.get(), name, path, folder.uid());
  }
  return at;
}

mgr_err::Error Taken(int parent, const std::string& name, const std::string& path) {
  struct stat state = {};
  const bool seen = sys::Stat(parent, name.c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0;
  return mgr_err::Error(
      "file", path,
      std::string("exists already") + (seen ? std::string(" as ") + KindOf(state.st_mode) : ""));
}

journal::Step StepOf(const mgr_file::safe::Folder& folder, const std::string& path) {
  return {"dir",
          {{"root", folder.root()},
           {"path", path},
           {"uid", std::to_string(folder.uid())},
           {"what", "directory " + path + " made"}}};
}

}  // namespace

// The folder may have been removed since, or have been given to somebody else when it was made.
bool KeepWay::IsOn(const mgr_file::safe::Folder& folder) const {
  const bool is_on =
      folder_ && root_ == folder.root() && uid_ == folder.uid() && LeadsTo(path_, folder.path());
  if (!is_on) {
    return false;
  }
  const struct stat state = StateOf(folder_.get(), path_);
  return state.st_nlink > 0 && (path_ == root_ || state.st_uid == uid_);
}

Walk::Walk(const mgr_file::safe::Folder& folder) : folder_(folder), path_(folder.root()) {
  left_ = ComponentsBelowRoot(folder);
  if (kept_way == nullptr || !kept_way->IsOn(folder)) {
    at_ = OpenRoot(folder);
    return;
  }
  at_ = OpenAgain(kept_way->folder_.get());
  if (!at_) {
    sys::Fail("open", kept_way->path_);
  }
  path_ = kept_way->path_;
  taken_ = Components(path_.substr(folder.root().size())).size();
}

Descriptor Walk::End() {
  if (kept_way != nullptr) {
    // When this fails the next walk begins anew.
    kept_way->folder_ = OpenAgain(at_.get());
    kept_way->root_ = folder_.root();
    kept_way->path_ = path_;
    kept_way->uid_ = folder_.uid();
  }
  return std::move(at_);
}

std::string Normalised(const std::string& path) {
  if (!path.starts_with('/')) {
    throw BadPath(path, "must be an absolute path");
  }
  if (path.find('\0') != std::string::npos) {
    throw BadPath(path.substr(0, path.find('\0')), "must not contain a NUL");
  }
  std::string normal;
  for (const std::string& name : Components(path)) {
    if (name == "..") {
      throw BadPath(path, "must not contain \"..\"");
    }
    if (name != ".") {
      normal += "/" + name;
    }
  }
  return normal.empty() ? "/" : normal;
}

mgr_file::safe::Folder Below(const mgr_file::safe::Owner& owner, const std::string& path) {
  mgr_file::safe::Folder folder(Normalised(owner.OwnerHome()), Normalised(path), owner.OwnerUid(),
                                owner.OwnerGid());
  if (ComponentsBelowRoot(folder).empty()) {
    throw BadPath(folder.path(), "does not lie below " + folder.root());
  }
  return folder;
}

Descriptor Open(const mgr_file::safe::Folder& folder) {
  Walk walk(folder);
  while (walk.Take()) {
    walk.Enter(OpenOwned(walk.at(), walk.name(), walk.next(), folder.uid()));
  }
  return walk.End();
}

std::vector<Made> MakePath(const mgr_file::safe::Folder& folder, const mgr_file::Attrs& attrs) {
  std::vector<Made> made;
  try {
    MakeComponents(folder, attrs, made);
  } catch (...) {
    RemoveAll(folder, made);
    throw;
  }
  return made;
}

Made MakeOne(const mgr_file::safe::Folder& parent, const std::string& name,
             const mgr_file::Attrs& attrs) {
  const Descriptor at = Open(parent);
  const std::string path = mgr_file::ConcatPath(parent.path(), name);
  std::optional<Fresh> fresh = TryMake(at.get(), name, path, attrs);
  if (!fresh) {
    throw Taken(at.get(), name, path);
  }
  return std::move(fresh->made);
}

bool CheckMakePath(const mgr_file::safe::Folder& folder) { return !OpenIfThere(folder); }

void CheckMakeOne(const mgr_file::safe::Folder& parent, const std::string& name) {
  const std::optional<Descriptor> at = OpenIfThere(parent);
  struct stat state = {};
  if (at && sys::Stat(at->get(), name.c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0) {
    throw Taken(at->get(), name, mgr_file::ConcatPath(parent.path(), name));
  }
}

void Remove(const mgr_file::safe::Folder& folder, const Made& made) {
  const auto [directory, name] = mgr_file::SplitPath(made.path);
  const Descriptor parent =
      Open({folder.root(), directory.empty() ? "/" : directory, folder.uid(), folder.gid()});
  struct stat state = {};
  if (sys::Stat(parent.get(), name.c_str(), &state, AT_SYMLINK_NOFOLLOW) != 0 ||
      state.st_dev != made.device || state.st_ino != made.inode) {
    return;
  }
  if (sys::RmDir(parent.get(), name.c_str()) == 0) {
    file_steps::SyncDirectory(parent.get(), directory);
  } else if (errno != ENOTEMPTY && errno != EEXIST && errno != ENOENT) {
    sys::Fail("rmdir", made.path);
  }
}

std::vector<journal::Step> StepsOfMaking(const mgr_file::safe::Folder& folder) {
  std::vector<journal::Step> steps;
  Walk walk(folder);
  while (steps.empty() && walk.Take()) {
    struct stat state = {};
    const char* const name = walk.name().c_str();
    if (sys::Stat(walk.at(), name, &state, AT_SYMLINK_NOFOLLOW) != 0 && errno == ENOENT) {
      steps.push_back(StepOf(folder, walk.next()));
    } else if (walk.next() != folder.path()) {
      walk.Enter(OpenOwned(walk.at(), walk.name(), walk.next(), folder.uid()));
    }
  }
  std::string path = steps.empty() ? folder.path() : walk.next();
  walk.End();
  // Below what is missing all is missing.
  for (std::string name, left = folder.path().substr(path.size()); path_names::Take(left, name);) {
    path = mgr_file::ConcatPath(path, name);
    steps.push_back(StepOf(folder, path));
  }
  return steps;
}

bool Undo(const journal::Step& step) {
  const std::string path = step.Value("path");
  const auto [directory, name] = mgr_file::SplitPath(path);
  const auto uid = static_cast<uid_t>(std::stoul(step.Value("uid")));
  const mgr_file::safe::Folder folder(step.Value("root"), directory, uid, 0);
  struct stat state = {};
  if (sys::Stat(AT_FDCWD, directory.c_str(), &state, AT_SYMLINK_NOFOLLOW) != 0 && errno == ENOENT) {
    return true;  // it was never made, or is gone with all that was above it
  }
  const Descriptor parent = Open(folder);
  if (sys::Stat(parent.get(), name.c_str(), &state, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno == ENOENT;
  }
  if (!S_ISDIR(state.st_mode) || (state.st_uid != uid && state.st_uid != ::geteuid())) {
    return false;
  }
  if (sys::RmDir(parent.get(), name.c_str()) != 0) {
    if (errno == ENOTEMPTY || errno == EEXIST) {
      return false;
    }
    sys::Fail("rmdir", path);
  }
  file_steps::SyncDirectory(parent.get(), directory);
  return true;
}

}  // namespace user_dir
