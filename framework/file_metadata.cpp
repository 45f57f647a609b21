#include "framework/file_metadata.h"

#include <grp.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <optional>
#include <vector>

#include "framework/sys.h"

namespace file_metadata {
namespace {

constexpr const char* kUnchanged = "the file is unchanged";
constexpr const char* kAcl = "system.posix_acl_access";
constexpr mode_t kModeBits = 07777;

// Reads a value of unknown size by `call(buffer, size)`, which tells the size when given none.
template <class Call>
std::optional<std::string> ReadSized(Call call) {
  std::string value;
  for (;;) {
    const ssize_t size = call(nullptr, 0);
    if (size <= 0) return size == 0 ? std::optional<std::string>("") : std::nullopt;
    value.resize(static_cast<std::size_t>(size));
    const ssize_t got = call(value.data(), value.size());
    if (got < 0 && errno == ERANGE) continue;
    if (got < 0) return std::nullopt;
    value.resize(static_cast<std::size_t>(got));
    return value;
  }
}

std::vector<std::string> Names(int fd, const std::string& path) {
  const auto list =
      ReadSized([&](char* names, std::size_t size) { return sys::FListXAttr(fd, names, size); });
  std::vector<std::string> names;
  if (!list) {
    if (errno == ENOTSUP) return names;
    sys::Fail("flistxattr", path, kUnchanged);
  }
  for (std::size_t at = 0; at < list->size(); at += names.back().size() + 1) {
    names.emplace_back(list->c_str() + at);
  }
  return names;
}

// Signatures of the content, which the system makes itself.
bool IsOfContent(const std::string& name) {
  return name == "security.ima" || name == "security.evm";
}

std::optional<std::string> Value(int fd, const std::string& name) {
  return ReadSized(
      [&](char* value, std::size_t size) { return sys::FGetXAttr(fd, name.c_str(), value, size); });
}

void CopyAttribute(int from, int to, const std::string& name, const std::string& path) {
  const auto value = Value(from, name);
  if (!value) {
    if (errno == ENODATA) return;  // somebody has just removed it
    sys::Fail("fgetxattr", path, kUnchanged);
  }
  // A label that the new file has anyway, and that may be set by the system alone, need not be set.
  if (Value(to, name) == value) return;
  if (sys::FSetXAttr(to, name.c_str(), value->data(), value->size()) != 0) {
    sys::Fail("fsetxattr", path, "attribute " + name + " can't be kept, " + kUnchanged);
  }
}

void DropAcl(int fd, const std::string& path) {
  if (sys::FRemoveXAttr(fd, kAcl) == 0 || errno == ENODATA || errno == ENOTSUP) return;
  sys::Fail("fremovexattr", path, kUnchanged);
}

void SetOwner(int to, uid_t uid, gid_t gid, const std::string& path) {
  struct stat info {};
  if (sys::FStat(to, &info) != 0) sys::Fail("fstat", path, kUnchanged);
  if (info.st_uid == uid && info.st_gid == gid) return;
  if (sys::FChOwn(to, uid, gid) != 0) {
    sys::Fail("fchown", path, std::string("its owner can't be kept, ") + kUnchanged);
  }
}

void SetMode(int to, mode_t mode, const std::string& path) {
  if (sys::FChMod(to, mode) != 0) sys::Fail("fchmod", path, kUnchanged);
}

std::optional<gid_t> DovecotGroup() {
  std::array<char, 16384> buffer;
  struct group entry {};
  struct group* found = nullptr;
  ::getgrnam_r("dovecot", &entry, buffer.data(), buffer.size(), &found);
  return found == nullptr ? std::nullopt : std::optional<gid_t>(found->gr_gid);
}

}  // namespace

void Copy(int from, const struct stat& from_info, int to, const std::string& path) {
  // An ACL that the directory hands on may let in others than the old file's.
  DropAcl(to, path);
  // Owner before mode: chown(2) may clear bits that chmod(2) has set.
  SetOwner(to, from_info.st_uid, from_info.st_gid, path);
  for (const std::string& name : Names(from, path)) {
    if (!IsOfContent(name)) CopyAttribute(from, to, name, path);
  }
  SetMode(to, from_info.st_mode & kModeBits, path);
}

void SetFresh(int to, const std::string& path) {
  DropAcl(to, path);
  const auto group = ::geteuid() == 0 ? DovecotGroup() : std::nullopt;
  if (group) SetOwner(to, 0, *group, path);
  SetMode(to, group ? 0640 : 0600, path);
}

}  // namespace file_metadata
