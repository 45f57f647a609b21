#include "framework/fingerprint.h"

#include <fcntl.h>
#include <sodium.h>

#include <array>
#include <cerrno>
#include <climits>

#include "framework/sys.h"
#include "mgr_file.h"

namespace fingerprint {

namespace {

constexpr const char* kLink = "link ";
constexpr std::size_t kHashBytes = crypto_generichash_BYTES;

std::string LinkAt(const std::string& path) {
  std::array<char, PATH_MAX> target{};
  const ssize_t length = sys::ReadLink(AT_FDCWD, path.c_str(), target.data(), target.size());
  if (length < 0) {
    sys::Fail("readlink", path);
  }
  return OfLink({target.data(), static_cast<std::size_t>(length)});
}

}  // namespace

std::string At(const std::string& path) {
  struct stat state {};
  if (sys::Stat(AT_FDCWD, path.c_str(), &state, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno != ENOENT && errno != ENOTDIR) {
      sys::Fail("stat", path);
    }
    return kNone;
  }
  if (S_ISLNK(state.st_mode)) {
    return LinkAt(path);
  }
  return S_ISREG(state.st_mode) ? OfContent(mgr_file::ReadE(path)) : "other";
}

std::string OfContent(std::string_view content) {
  std::array<unsigned char, kHashBytes> hash{};
  crypto_generichash(hash.data(), hash.size(),
                     reinterpret_cast<const unsigned char*>(content.data()), content.size(),
                     nullptr, 0);
  std::array<char, 2 * kHashBytes + 1> digits{};
  sodium_bin2hex(digits.data(), digits.size(), hash.data(), hash.size());
  return std::string("file ") + digits.data();
}

std::string OfLink(const std::string& target) { return kLink + target; }

bool IsLink(const std::string& text) { return text.starts_with(kLink); }

}  // namespace fingerprint
