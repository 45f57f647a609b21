#pragma once

#include <string>
#include <string_view>

namespace support {

/// A fresh directory (0700) below the system's folder for temporary files, removed with everything
/// in it at the end of the object's life. Failing to do so fails the running test.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  /// Absolute, without a slash at the end.
  const std::string& path() const { return path_; }
  /// Path of `name` inside the directory; makes nothing.
  std::string operator/(std::string_view name) const;

  /// Makes the file `name` hold `content`, with its missing folders, and returns its path.
  std::string Write(std::string_view name, std::string_view content) const;
  /// Content of the file `name`; fails the test and is empty when it can't be read.
  std::string Read(std::string_view name) const;
  /// Makes the folder `name` and its missing parents, and returns its path.
  std::string MakeFolder(std::string_view name) const;

 private:
  std::string path_;
};

/// Content of the file at `path`; fails the running test and is empty when it can't be read.
std::string ReadFile(const std::string& path);

}  // namespace support
