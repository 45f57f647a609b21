#include "framework/read_at_most.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "framework/descriptor.h"
#include "framework/file_error.h"
#include "mgr_err.h"

namespace mgr_file {

namespace {

void RefuseLonger(std::size_t size, std::size_t most, const std::string& path) {
  if (size > most) {
    throw mgr_err::Error("file", path, "is larger than " + std::to_string(most) + " bytes");
  }
}

std::string ReadAll(int file, std::size_t expected, std::size_t most, const std::string& path) {
  std::string content;
  // One byte more, so that the end of a file that did not grow is seen without another round.
  content.resize(expected + 1);
  for (std::size_t size = 0;;) {
    const ssize_t got = ::read(file, content.data() + size, content.size() - size);
    if (got < 0 && errno != EINTR) {
      throw FileError(path, "read");
    }
    if (got == 0) {
      content.resize(size);
      return content;
    }
    size += got > 0 ? static_cast<std::size_t>(got) : 0;
    RefuseLonger(size, most, path);
    if (size == content.size()) {
      content.resize(2 * size);
    }
  }
}

}  // namespace

std::string ReadAtMost(const std::string& path, std::size_t most) {
  // Without O_NONBLOCK a pipe at the path would hold the caller up until somebody opens its end.
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!file) {
    throw FileError(path, "open");
  }
  if (::fstat(file.get(), &status) != 0) {
    throw FileError(path, "fstat");
  }
  if (!S_ISREG(status.st_mode)) {
    throw mgr_err::Error("file", path, "not a regular file");
  }
  RefuseLonger(static_cast<std::size_t>(status.st_size), most, path);
  return ReadAll(file.get(), static_cast<std::size_t>(status.st_size), most, path);
}

}  // namespace mgr_file
