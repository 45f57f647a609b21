#include "framework/log_setup.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <thread>
#include <vector>

#include "mgr_err.h"
#include "mgr_log.h"
#include "tests/support/temp_dir.h"

namespace {

using mgr_log::Module;
using support::TempDir;

class LogSetup : public ::testing::Test {
 protected:
  void TearDown() override { mgr_log::Reset(); }

  mgr_log::Setup SetupIn(const std::string& directory, int level = 9) const {
    mgr_log::Setup setup;
    setup.directory = directory;
    setup.level = level;
    return setup;
  }

  TempDir dir_;
};

TEST_F(LogSetup, MakesTheFolderAndItsParents) {
  mgr_log::Configure(SetupIn(dir_ / "a/b"));

  struct stat status {};
  ASSERT_EQ(0, ::stat((dir_ / "a/b").c_str(), &status));
  EXPECT_EQ(0U, status.st_mode & 0027) << "nobody else may list the logs";
  EXPECT_TRUE(std::filesystem::is_empty(dir_ / "a/b")) << "files come with messages";
}

TEST_F(LogSetup, ModulesAreNamedAsLongAsTheyExist) {
  const auto count = [] {
    const std::vector<std::string> names = mgr_log::ModuleNames();
    return std::count(names.begin(), names.end(), "log_setup_test");
  };
  EXPECT_EQ(0, count());
  {
    const Module module("log_setup_test", "test");
    EXPECT_EQ(1, count());
  }
  EXPECT_EQ(0, count());
}

TEST_F(LogSetup, TakesAFolderThatIsThere) {
  mgr_log::Configure(SetupIn(dir_.path() + "/"));
  Module("email", "dormel").Write(3, "kept");
  EXPECT_NE(std::string::npos, dir_.Read("dormel.log").find("kept"));
}

TEST_F(LogSetup, RefusedFolderLeavesTheEarlierSetup) {
  dir_.Write("file", "");
  mgr_log::Configure(SetupIn(dir_ / "log"));
  try {
    mgr_log::Configure(SetupIn(dir_ / "file/log", 3));
    ADD_FAILURE() << "no error";
  } catch (const mgr_err::Error& error) {
    EXPECT_EQ("file", error.type());
  }

  Module module("email", "dormel");
  EXPECT_TRUE(module.Check(9));
  module.Write(9, "still here");
  EXPECT_NE(std::string::npos, dir_.Read("log/dormel.log").find("still here"));
}

TEST_F(LogSetup, LevelsAreThoseOfTheModule) {
  mgr_log::Setup setup = SetupIn(dir_.path(), 4);
  setup.levels = {{"email", 9}, {"quiet", 3}};
  Module before("email", "dormel");
  mgr_log::Configure(setup);
  Module after("email", "dormel");
  Module quiet("quiet", "dormel");
  Module other("other", "email");
  struct Case {
    const char* name;
    Module& module;
    int highest;
  };
  const std::vector<Case> cases = {
      {"made before the set-up", before, 9},
      {"made after it", after, 9},
      {"lower than the general level", quiet, 3},
      {"not named, though its log is", other, 4},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    for (int level = 0; level <= 12; ++level) {
      EXPECT_EQ(level <= c.highest, c.module.Check(level)) << level;
    }
  }
}

TEST_F(LogSetup, NewSetupReachesModulesInUse) {
  Module module("email", "dormel");
  mgr_log::Configure(SetupIn(dir_ / "first", 9));
  module.Write(9, "one");
  mgr_log::Configure(SetupIn(dir_ / "second", 3));
  module.Write(3, "two");

  EXPECT_FALSE(module.Check(4));
  EXPECT_EQ(std::string::npos, dir_.Read("first/dormel.log").find("two"));
  EXPECT_NE(std::string::npos, dir_.Read("second/dormel.log").find("two"));
}

TEST_F(LogSetup, FullFileIsPutAside) {
  mgr_log::Setup setup = SetupIn(dir_.path());
  setup.rotate_bytes = 100;
  setup.keep = 1;
  mgr_log::Configure(setup);
  Module module("email", "dormel");
  for (const char* text : {"first", "second", "third"}) {
    module.Write(3, "%s%s", text, std::string(60, '.').c_str());
  }

  EXPECT_NE(std::string::npos, dir_.Read("dormel.log").find("third"));
  EXPECT_NE(std::string::npos, dir_.Read("dormel.log.1").find("second"));
  EXPECT_FALSE(std::filesystem::exists(dir_ / "dormel.log.2"));
}

// Writes `lines` messages and ends the process.
[[noreturn]] void WriteAndExit(const mgr_log::Setup& setup, int lines) {
  mgr_log::Configure(setup);
  Module module("email", "dormel");
  for (int i = 0; i < lines; ++i) {
    module.Write(6, "message");
  }
  ::_exit(0);
}

TEST_F(LogSetup, TwoProcessesThatRotateLoseNoMessage) {
  constexpr int kLines = 2000;
  mgr_log::Setup setup = SetupIn(dir_.path());
  setup.rotate_bytes = 4096;
  setup.keep = 1000;
  for (int i = 0; i < 2; ++i) {
    const pid_t child = ::fork();
    ASSERT_LE(0, child);
    if (child == 0) {
      WriteAndExit(setup, kLines);
    }
  }
  for (int i = 0; i < 2; ++i) {
    int status = -1;
    ASSERT_LT(0, ::wait(&status));
    EXPECT_EQ(0, status);
  }

  int lines = 0;
  for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
    std::istringstream text(support::ReadFile(entry.path()));
    for (std::string line; std::getline(text, line); ++lines) {
      EXPECT_EQ("info email: message", line.substr(line.find("info")));
    }
  }
  EXPECT_EQ(2 * kLines, lines);
}

TEST_F(LogSetup, MayChangeWhileOthersWrite) {
  std::vector<std::thread> writers;
  for (int i = 0; i < 3; ++i) {
    writers.emplace_back([] {
      Module module("email", "dormel");
      for (int n = 0; n < 300; ++n) {
        if (module.Check(6)) {
          module.Write(6, "x");
        }
      }
    });
  }
  for (int i = 0; i < 30; ++i) {
    mgr_log::Configure(SetupIn(dir_ / "first", i % 2 == 0 ? 9 : 3));
    mgr_log::Configure(SetupIn(dir_ / "second", 9));
  }
  for (std::thread& writer : writers) {
    writer.join();
  }
  EXPECT_TRUE(Module("email", "dormel").Check(9));
}

}  // namespace
