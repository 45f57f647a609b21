#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "framework/config_file.h"
#include "mgr_proc.h"
#include "tests/support/sanitized.h"
#include "tests/support/stub_program.h"
#include "tests/support/temp_dir.h"

using support::kSanitized;

/// Seconds that pass while a test looks at something.
class Stopwatch {
 public:
  double Seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

/// Runs stand-in programs; each test must leave neither a child, a zombie nor a descriptor behind.
class MgrProc : public ::testing::Test {
 protected:
  void SetUp() override { descriptors_ = OpenDescriptors(); }

  void TearDown() override {
    EXPECT_EQ(descriptors_, OpenDescriptors()) << "a descriptor was left open or closed";
    EXPECT_EQ(-1, ::waitpid(-1, nullptr, WNOHANG)) << "a child was left behind";
    mgr_cf::Reset();
  }

  /// Limit of the runs to come, in seconds.
  static void SetLimit(const std::string& seconds) { mgr_cf::SetParam("ExecTimeout", seconds); }

  /// Path of an executable shell script.
  std::string Stub(std::string_view body, const std::string& name = "stub") const {
    return support::WriteStub(directory_ / name, body);
  }

  static std::size_t OpenDescriptors() {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry :
         std::filesystem::directory_iterator("/proc/self/fd")) {
      ++count;
    }
    return count;
  }

  support::TempDir directory_;

 private:
  std::size_t descriptors_ = 0;
};

/// True when the process is there and no zombie.
inline bool IsAlive(const std::string& pid) {
  const std::string file = "/proc/" + pid + "/stat";
  if (pid.empty() || !std::filesystem::exists(file)) {
    return false;
  }
  std::FILE* stat = std::fopen(file.c_str(), "re");
  if (stat == nullptr) {
    return false;
  }
  char state = 'Z';
  const bool read = std::fscanf(stat, "%*d %*s %c", &state) == 1;
  std::fclose(stat);
  return read && state != 'Z';
}
