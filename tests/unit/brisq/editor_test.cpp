#include "brisq/editor.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <sstream>

#include "mgr_err.h"
#include "tests/support/temp_dir.h"

namespace brisq {
namespace {

class EditorTest : public testing::Test {
 protected:
  void SetUp() override {
    unsetenv("VISUAL");
    unsetenv("EDITOR");
  }
  void TearDown() override { SetUp(); }

  std::string Command(bool interactive) {
    console_.interactive = interactive;
    return EditorCommand(console_);
  }
  static std::string ErrorOf(const std::string& command, const std::string& file) {
    try {
      RunEditor(command, file);
    } catch (const mgr_err::Error& error) {
      return error.what();
    }
    return "";
  }

  support::TempDir dir_;
  std::istringstream in_;
  std::ostringstream out_, err_;
  Console console_{in_, out_, err_};
};

TEST_F(EditorTest, VisualComesBeforeEditor) {
  setenv("EDITOR", "ed -s", 1);
  EXPECT_EQ("ed -s", Command(false));
  setenv("VISUAL", "vim", 1);
  EXPECT_EQ("vim", Command(true));
  setenv("VISUAL", "", 1);
  EXPECT_EQ("ed -s", Command(true));
}

TEST_F(EditorTest, WithoutOneATerminalIsNeeded) {
  EXPECT_NE("", Command(true));
  try {
    Command(false);
    FAIL() << "an editor without a terminal";
  } catch (const mgr_err::Error& error) {
    EXPECT_STREQ("usage: without a terminal this needs VISUAL or EDITOR to be set", error.what());
  }
}

TEST_F(EditorTest, TheFileIsOneWordAndTheCommandMayHaveSeveral) {
  const std::string odd = dir_.Write("a b;$(touch x)'\"", "one\n");
  EXPECT_EQ("", ErrorOf("sed -i s/one/two/", odd));
  EXPECT_EQ("two\n", support::ReadFile(odd));
}

TEST_F(EditorTest, AnEditorThatFailsIsAnError) {
  const std::string file = dir_.Write("file", "");
  EXPECT_EQ("file: editor: ended with 3; nothing was changed", ErrorOf("exit 3;", file));
  EXPECT_EQ("file: editor: ended by signal 9; nothing was changed", ErrorOf("kill -9 $$;", file));
  EXPECT_EQ("file: editor: ended with 127; nothing was changed",
            ErrorOf("/nowhere/editor 2>/dev/null", file));
}

// What we ignore must not stay ignored in the editor, nor our signals be ignored afterwards.
TEST_F(EditorTest, TheEditorHasTheUsualSignalsAndSoHaveWe) {
  const auto pipe = std::signal(SIGPIPE, SIG_IGN);
  const auto interrupt = std::signal(SIGINT, SIG_DFL);
  const std::string file = dir_.Write("file", "");
  EXPECT_EQ("", ErrorOf("f() { grep SigIgn /proc/self/status >\"$1\"; }; f", file));
  const std::string ignored = support::ReadFile(file);
  ASSERT_EQ(0U, ignored.find("SigIgn:\t"));
  // Above the usual ones are the C library's own.
  EXPECT_EQ(0U, std::stoull(ignored.substr(8), nullptr, 16) & 0x7fffffffU) << ignored;
  EXPECT_EQ(SIG_DFL, std::signal(SIGINT, interrupt));
  std::signal(SIGPIPE, pipe);
}

}  // namespace
}  // namespace brisq
