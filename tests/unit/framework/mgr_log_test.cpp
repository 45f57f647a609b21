#include "mgr_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <thread>
#include <vector>

#include "framework/log_setup.h"
#include "tests/support/log_capture.h"

namespace {

using mgr_log::Module;
using support::LogCapture;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

Module file_scope_module("early", "dormel");

class MgrLog : public ::testing::Test {
 protected:
  void SetUp() override { mgr_log::Reset(); }
  void TearDown() override { mgr_log::Reset(); }
};

TEST_F(MgrLog, BeforeTheSetupErrorsAndWarningsGoToStandardError) {
  EXPECT_TRUE(file_scope_module.Check(3));
  EXPECT_TRUE(file_scope_module.Check(4));
  EXPECT_FALSE(file_scope_module.Check(5));
  EXPECT_FALSE(file_scope_module.Check(9));

  ::testing::internal::CaptureStderr();
  file_scope_module.Write(3, "bad %d", 1);
  file_scope_module.Write(4, "odd\nline");
  file_scope_module.Write(5, "not this");
  file_scope_module.Write(9, "nor this");
  const std::string text = ::testing::internal::GetCapturedStderr();

  EXPECT_THAT(text, MatchesRegex("[^\n]* error early: bad 1\n[^\n]* warning early: odd.nline\n"));
}

TEST_F(MgrLog, LineHasTimeProcessLevelAndModule) {
  const LogCapture logs;
  file_scope_module.Write(4, "Specified %s isn't supported.", "X");

  EXPECT_THAT(support::ReadFile(logs.directory() + "/dormel.log"),
              MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}"
                           "[+-][0-9]{2}:[0-9]{2} " +
                           std::to_string(::getpid()) +
                           " warning early: Specified X isn't supported\\.\n"));
}

TEST_F(MgrLog, LevelsHaveNames) {
  LogCapture logs;
  logs.ExpectError("level 0");
  logs.ExpectError("level 3");
  Module module("email", "dormel");
  for (const int level : {0, 3, 4, 5, 6, 7, 9}) {
    module.Write(level, "level %d", level);
  }
  EXPECT_THAT(logs.Messages(),
              ElementsAre("error email: level 0", "error email: level 3", "warning email: level 4",
                          "info email: level 5", "info email: level 6", "debug email: level 7",
                          "debug email: level 9"));
}

TEST_F(MgrLog, EachLogHasItsFile) {
  const LogCapture logs;
  Module("email", "dormel").Write(6, "one");
  Module("reload", "dormel").Write(6, "two");
  Module("email", "panel").Write(6, "three");

  EXPECT_THAT(logs.Messages("dormel"), ElementsAre("info email: one", "info reload: two"));
  EXPECT_THAT(logs.Messages("panel"), ElementsAre("info email: three"));
}

TEST_F(MgrLog, ModulesThatDoNotWriteMakeNoFile) {
  const LogCapture logs;
  {
    Module module("email", "dormel");
    EXPECT_TRUE(module.Check(9));
  }
  EXPECT_TRUE(std::filesystem::is_empty(logs.directory()));
}

TEST_F(MgrLog, WriteDoesNotTestTheLevel) {
  const LogCapture logs(3);
  Module module("email", "dormel");
  EXPECT_FALSE(module.Check(9));
  module.Write(9, "all the same");
  EXPECT_THAT(logs.Messages(), ElementsAre("debug email: all the same"));
}

TEST_F(MgrLog, MessageIsOneLineWhateverItHolds) {
  const LogCapture logs;
  Module module("email", "dormel");
  std::string text;
  for (int byte = 1; byte < 256; ++byte) {
    text += static_cast<char>(byte);
  }
  module.Write(4, "%s", text.c_str());
  module.Write(4, "NUL %c.", '\0');
  module.Write(4, "percent 100%%");
  module.Write(4, "%s", "");

  const std::vector<support::LogLine> lines = logs.Lines();
  ASSERT_EQ(4U, lines.size());
  EXPECT_THAT(lines[0].text, HasSubstr("\\x01"));
  EXPECT_EQ("NUL \\x00.", lines[1].text);
  EXPECT_EQ("percent 100%", lines[2].text);
  EXPECT_EQ("", lines[3].text);
}

TEST_F(MgrLog, ModuleNameCannotForgeALine) {
  const LogCapture logs;
  Module("em\nail", "dormel").Write(4, "x");
  EXPECT_EQ(1U, logs.Lines().size());
}

TEST_F(MgrLog, LongMessageIsCutAndSaysSo) {
  const LogCapture logs;
  Module module("email", "dormel");
  module.Write(4, "%s", std::string(65536, 'x').c_str());
  module.Write(4, "%s", std::string(65536 + 12, 'y').c_str());

  const std::vector<support::LogLine> lines = logs.Lines();
  ASSERT_EQ(2U, lines.size());
  EXPECT_EQ(std::string(65536, 'x'), lines[0].text);
  EXPECT_EQ(std::string(65536, 'y') + " ... (12 bytes more)", lines[1].text);
}

TEST_F(MgrLog, LogThatCannotBeWrittenDoesNotFailTheCaller) {
  const support::TempDir dir;
  mgr_log::Setup setup;
  setup.directory = dir.path();
  mgr_log::Configure(setup);
  dir.MakeFolder("dormel.log");

  ::testing::internal::CaptureStderr();
  EXPECT_NO_THROW(Module("email", "dormel").Write(3, "first"));

  EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr(" error email: first\n"));
}

TEST_F(MgrLog, WriteLeavesErrnoAlone) {
  const LogCapture logs;
  Module module("email", "dormel");
  errno = ENOTTY;
  module.Write(4, "x");
  EXPECT_EQ(ENOTTY, errno);
}

TEST_F(MgrLog, MessagesOfThreadsAreNotMixed) {
  constexpr int kThreads = 4;
  constexpr int kMessages = 500;
  const LogCapture logs;
  Module module("email", "dormel");
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&module, thread] {
      for (int i = 0; i < kMessages; ++i) {
        module.Write(6, "%d %d %s", thread, i, std::string(200, 'x').c_str());
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }

  std::set<std::string> seen;
  for (const std::string& message : logs.Messages()) {
    EXPECT_TRUE(seen.insert(message).second) << message;
    EXPECT_THAT(message, MatchesRegex("info email: [0-9]+ [0-9]+ x{200}"));
  }
  EXPECT_EQ(std::size_t{kThreads * kMessages}, seen.size());
}

TEST_F(MgrLog, ModulesComeAndGoWhileTheSetupChanges) {
  const support::TempDir dir;
  std::thread maker([] {
    for (int i = 0; i < 2000; ++i) {
      const Module module("email", "dormel");
      EXPECT_TRUE(module.Check(3));
    }
  });
  mgr_log::Setup setup;
  setup.directory = dir.path();
  for (int i = 0; i < 100; ++i) {
    setup.level = 3 + i % 6;
    mgr_log::Configure(setup);
  }
  maker.join();
  mgr_log::Reset();
}

}  // namespace
