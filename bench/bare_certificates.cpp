#include "bench/bare_certificates.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "bench/measure.h"

namespace bench {
namespace {

// Ends the line's path and looks whether anything is there.
bool IsMissing(char* line, const char* setting, char** next) {
  char* const path = std::strstr(line, setting);
  if (path == nullptr) return false;
  char* const end = std::strchr(path, '\n');
  *end = '\0';
  *next = end + 1;
  struct stat info {};
  return ::stat(path + std::strlen(setting), &info) != 0;
}

long MissingIn(int directory, const char* name) {
  char content[8192];
  const int fd = ::openat(directory, name, O_RDONLY | O_CLOEXEC);
  if (fd < 0) Fail("open");
  const ssize_t size = ::read(fd, content, sizeof content - 1);
  ::close(fd);
  if (size <= 0) Fail("read");
  content[size] = '\0';
  char* at = content;
  const bool cert = IsMissing(at, "\tssl_cert = <", &at);
  return cert || IsMissing(at, "\tssl_key = <", &at) ? 1 : 0;
}

}  // namespace

long CheckCertificatesBare(const std::string& folder) {
  DIR* const entries = ::opendir(folder.c_str());
  if (entries == nullptr) Fail("opendir");
  long missing = 0;
  while (const dirent* entry = ::readdir(entries)) {
    const std::size_t length = std::strlen(entry->d_name);
    if (length > 5 && std::strcmp(entry->d_name + length - 5, ".conf") == 0) {
      missing += MissingIn(::dirfd(entries), entry->d_name);
    }
  }
  ::closedir(entries);
  return missing;
}

}  // namespace bench
