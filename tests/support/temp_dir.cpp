#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace support {

namespace fs = std::filesystem;

TempDir::TempDir() {
  std::string pattern = (fs::temp_directory_path() / "brisq-test-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) {
    throw std::runtime_error("no temporary directory: " + pattern);
  }
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code error;
  fs::remove_all(path_, error);
  if (error) {
    ADD_FAILURE() << "left behind: " << path_ << ": " << error.message();
  }
}

std::string TempDir::operator/(std::string_view name) const {
  return path_ + "/" + std::string(name);
}

std::string TempDir::Write(std::string_view name, std::string_view content) const {
  const fs::path path = *this / name;
  fs::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << content;
  if (!file.flush()) {
    throw std::runtime_error("can't write " + path.string());
  }
  return path.string();
}

std::string TempDir::Read(std::string_view name) const { return ReadFile(*this / name); }

std::string TempDir::MakeFolder(std::string_view name) const {
  std::string path = *this / name;
  fs::create_directories(path);
  return path;
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    ADD_FAILURE() << "can't read " << path;
    return {};
  }
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace support
