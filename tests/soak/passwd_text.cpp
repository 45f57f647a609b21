#include "tests/soak/passwd_text.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace soak {

Passwords Parse(std::string_view content) {
  Passwords passwords;
  while (!content.empty()) {
    const std::size_t end = std::min(content.find('\n'), content.size());
    const std::string_view line = content.substr(0, end);
    content.remove_prefix(std::min(end + 1, content.size()));
    const std::size_t first = line.find(':');
    if (first == 0 || first == std::string_view::npos || line.front() == '#') continue;
    const std::string_view rest = line.substr(first + 1);
    std::string value(rest.substr(0, rest.find(':')));
    const auto [at, fresh] = passwords.emplace(line.substr(0, first), value);
    if (!fresh) at->second += "+" + value;
  }
  return passwords;
}

const std::string& ValueOf(const Passwords& passwords, std::string_view name) {
  const auto found = passwords.find(name);
  return found == passwords.end() ? kAbsent : found->second;
}

std::string LineOf(std::string_view name, std::string_view password) {
  std::string line(name);
  line.append(":").append(password).append(":1000:1000::/home/").append(name);
  return line + ":::maildir:~/.maildir userdb_quota_rule=*:bytes=0M\n";
}

std::string ReadRaw(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  Require(fd >= 0, "open to read");
  std::string content = ReadRaw(fd);
  ::close(fd);
  return content;
}

std::string ReadRaw(int fd) {
  std::string content;
  std::array<char, 65536> buffer;
  ssize_t got = 0;
  while ((got = ::pread(fd, buffer.data(), buffer.size(), static_cast<off_t>(content.size()))) > 0)
    content.append(buffer.data(), static_cast<std::size_t>(got));
  Require(got == 0, "read");
  return content;
}

void WriteRaw(int fd, std::string_view text) {
  Require(::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()), "write");
}

void Require(bool holds, const char* call) {
  if (!holds) throw std::runtime_error(std::string(call) + ": " + std::strerror(errno));
}

}  // namespace soak
