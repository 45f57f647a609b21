#include "framework/file_access.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "framework/descriptor.h"
#include "framework/sys.h"
#include "framework/user_dir.h"
#include "mgr_err.h"

namespace file_access {

namespace {

constexpr mode_t kBits = 07777;

// Bits that the system takes away when the owner changes.
constexpr mode_t kSetIds = S_ISUID | S_ISGID;

Descriptor Open(const Place& place) {
  if (!place.folder.empty()) {
    return user_dir::Open(place.folder);
  }
  // Without O_NONBLOCK a pipe at the path would hold us up.
  Descriptor file(sys::Open(AT_FDCWD, place.path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
  if (!file) {
    sys::Fail("open", place.path);
  }
  return file;
}

Access AccessOf(const Descriptor& file, const std::string& path) {
  struct stat state {};
  if (sys::FStat(file.get(), &state) != 0) {
    sys::Fail("stat", path);
  }
  return {state.st_mode & kBits, state.st_uid, state.st_gid};
}

// Each part is the one or the other: nobody else has had a hand in it.
bool LiesBetween(const Access& now, const Access& from, const Access& to) {
  const bool mode =
      now.mode == from.mode || now.mode == to.mode || now.mode == (from.mode & ~kSetIds);
  return mode && (now.uid == from.uid || now.uid == to.uid) &&
         (now.gid == from.gid || now.gid == to.gid);
}

void Set(const Descriptor& file, const Access& now, const Access& to, const std::string& path) {
  // Owner before mode: chown may clear bits that chmod has set.
  if ((now.uid != to.uid || now.gid != to.gid) && sys::FChOwn(file.get(), to.uid, to.gid) != 0) {
    sys::Fail("chown", path);
  }
  if (sys::FChMod(file.get(), to.mode) != 0) {
    sys::Fail("chmod", path);
  }
  // What is no file and no directory has nothing to sync.
  if (sys::FSync(file.get()) != 0 && errno != EINVAL && errno != EROFS) {
    sys::Fail("fsync", path);
  }
}

std::string Octal(mode_t mode) {
  std::array<char, 8> text{};
  std::snprintf(text.data(), text.size(), "%04o", static_cast<unsigned>(mode));
  return text.data();
}

void AddAccess(journal::Step& step, const std::string& prefix, const Access& access) {
  step.values[prefix + "mode"] = Octal(access.mode);
  step.values[prefix + "uid"] = std::to_string(access.uid);
  step.values[prefix + "gid"] = std::to_string(access.gid);
}

unsigned Number(const journal::Step& step, const std::string& name, int base) {
  return static_cast<unsigned>(std::strtoul(step.Value(name).c_str(), nullptr, base));
}

Access AccessIn(const journal::Step& step, const std::string& prefix) {
  return {Number(step, prefix + "mode", 8), Number(step, prefix + "uid", 10),
          Number(step, prefix + "gid", 10)};
}

Place PlaceIn(const journal::Step& step) {
  const std::string path = step.Value("path");
  if (step.Value("root").empty()) {
    return {path};
  }
  return {path, mgr_file::safe::Folder(step.Value("root"), path, Number(step, "owner", 10),
                                       Number(step, "group", 10))};
}

bool IsThere(const std::string& path) {
  struct stat state {};
  return sys::Stat(AT_FDCWD, path.c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0 || errno != ENOENT;
}

}  // namespace

Access Of(const Place& place) { return AccessOf(Open(place), place.path); }

void Change(const Place& place, const Access& from, const Access& to) {
  const Descriptor file = Open(place);
  const Access now = AccessOf(file, place.path);
  if (!LiesBetween(now, from, to)) {
    throw mgr_err::Error("file", place.path, "not undone: changed since");
  }
  try {
    Set(file, now, to, place.path);
  } catch (const mgr_err::Error&) {
    // As far as the system lets us: the error that is told is the one that came first.
    if (sys::FChOwn(file.get(), now.uid, now.gid) == 0) {
      sys::FChMod(file.get(), now.mode);
    }
    throw;
  }
}

journal::Step ToStep(const Place& place, const Access& from, const Access& to) {
  journal::Step step{
      "access",
      {{"path", place.path}, {"what", "mode of " + place.path + " set to " + Octal(to.mode)}}};
  if (!place.folder.empty()) {
    step.values["root"] = place.folder.root();
    step.values["owner"] = std::to_string(place.folder.uid());
    step.values["group"] = std::to_string(place.folder.gid());
  }
  AddAccess(step, "old.", from);
  AddAccess(step, "new.", to);
  return step;
}

bool Undo(const journal::Step& step) {
  const Place place = PlaceIn(step);
  if (!IsThere(place.path)) {
    return false;
  }
  const Access from = AccessIn(step, "old.");
  const Descriptor file = Open(place);
  const Access now = AccessOf(file, place.path);
  if (now == from) {
    return true;
  }
  if (!LiesBetween(now, from, AccessIn(step, "new."))) {
    return false;
  }
  Set(file, now, from, place.path);
  return true;
}

}  // namespace file_access
