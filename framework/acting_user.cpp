#include "framework/acting_user.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <fstream>

namespace {

constexpr std::uint32_t kNoLogin = UINT32_MAX;

std::string NameOf(uid_t uid) {
  std::array<char, 4096> buffer{};
  passwd entry{};
  passwd* found = nullptr;
  if (::getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr) {
    return found->pw_name;
  }
  return std::to_string(uid);
}

// Stays the same through su and sudo.
std::uint32_t LoginUid() {
  std::ifstream file("/proc/self/loginuid");
  std::uint32_t uid = kNoLogin;
  return file >> uid ? uid : kNoLogin;
}

}  // namespace

std::string ActingUser() {
  const uid_t own = ::getuid();
  const std::uint32_t login = LoginUid();
  return login == kNoLogin || login == own ? NameOf(own) : NameOf(login) + " as " + NameOf(own);
}
