#include "tests/support/stub_program.h"

#include <sys/stat.h>

#include <cstdio>
#include <memory>
#include <stdexcept>

namespace support {

namespace {

// The path in single quotes, for the shell.
std::string Quoted(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) {
    quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  return quoted + "'";
}

}  // namespace

std::string WriteStub(const std::string& path, std::string_view body) {
  const std::string text = "#!/bin/sh\n" + std::string(body) + "\n";
  std::FILE* pipe = ::popen(("exec cat > " + Quoted(path)).c_str(), "we");
  if (pipe == nullptr) {
    throw std::runtime_error("can't run a shell to write " + path);
  }
  const bool written = std::fwrite(text.data(), 1, text.size(), pipe) == text.size();
  if (::pclose(pipe) != 0 || !written || ::chmod(path.c_str(), 0755) != 0) {
    throw std::runtime_error("can't write " + path);
  }
  return path;
}

}  // namespace support
