#include "framework/log_sink.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/temp_dir.h"

namespace {

using support::TempDir;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

class LogSink : public ::testing::Test {
 protected:
  std::unique_ptr<mgr_log::Sink> FileSink() const {
    mgr_log::Setup setup;
    setup.directory = dir_.path();
    return mgr_log::FileSink(setup, "dormel");
  }

  // What `sink` says on standard error when two messages are written.
  static std::string StandardErrorOf(mgr_log::Sink& sink) {
    ::testing::internal::CaptureStderr();
    sink.Write("email", 3, "first");
    sink.Write("email", 9, "second");
    return ::testing::internal::GetCapturedStderr();
  }

  TempDir dir_;
};

TEST_F(LogSink, FileHoldsOneLineForEachMessage) {
  EXPECT_EQ("", StandardErrorOf(*FileSink()));
  EXPECT_THAT(dir_.Read("dormel.log"), MatchesRegex("[^\n ]+ [0-9]+ error email: first\n"
                                                    "[^\n ]+ [0-9]+ debug email: second\n"));
}

TEST_F(LogSink, StandardErrorGetsErrorsAndWarningsOnly) {
  EXPECT_THAT(StandardErrorOf(*mgr_log::StandardErrorSink()),
              MatchesRegex("[^\n ]+ [0-9]+ error email: first\n"));
}

TEST_F(LogSink, FileThatCannotBeWrittenGoesToStandardErrorWithTheReasonOnce) {
  dir_.MakeFolder("dormel.log");
  EXPECT_THAT(
      StandardErrorOf(*FileSink()),
      MatchesRegex("the log can't be written: file: [^\n]*/dormel.log: open: Is a directory\n"
                   "[^\n]* error email: first\n[^\n]* debug email: second\n"));
}

TEST_F(LogSink, FileIsWrittenAgainAfterItsTroubleIsOver) {
  const std::unique_ptr<mgr_log::Sink> sink = FileSink();
  dir_.MakeFolder("dormel.log");
  EXPECT_THAT(StandardErrorOf(*sink), HasSubstr("first"));
  std::filesystem::remove(dir_ / "dormel.log");

  EXPECT_EQ("", StandardErrorOf(*sink));

  EXPECT_THAT(dir_.Read("dormel.log"), HasSubstr("error email: first\n"));
  std::filesystem::remove(dir_ / "dormel.log");
  dir_.MakeFolder("dormel.log");
  EXPECT_THAT(StandardErrorOf(*sink), HasSubstr("the log can't be written"))
      << "new trouble has its reason again";
}

TEST_F(LogSink, ClosedStandardErrorHarmsNobody) {
  const int saved = ::dup(STDERR_FILENO);
  ::close(STDERR_FILENO);
  mgr_log::StandardErrorSink()->Write("email", 3, "unseen");
  ::dup2(saved, STDERR_FILENO);
  ::close(saved);
  EXPECT_TRUE(std::filesystem::is_empty(dir_.path()));
}

}  // namespace
