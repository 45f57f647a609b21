// A program that is started without standard streams must not take the files that it opens for
// them.

#include <gmock/gmock.h>

#include <filesystem>
#include <sstream>

#include "tests/unit/brisq/program_fixture.h"

namespace brisq {
namespace {

using testing::IsEmpty;

class StandardStreams : public ProgramTest {
 protected:
  int RunWith(const std::string& streams, const std::string& words) {
    return StatusOf(std::system((Program() + " " + words + " " + streams).c_str()));
  }

  // Lines of the log that no module has written.
  std::string Strangers() const {
    std::string strangers;
    for (const auto& log : std::filesystem::directory_iterator(dir_ / "log")) {
      std::istringstream lines(support::ReadFile(log.path()));
      for (std::string line; std::getline(lines, line);)
        if (!line.starts_with("20")) strangers += line + "\n";  // of a year
    }
    return strangers;
  }
};

TEST_F(StandardStreams, WhatCantBeToldGoesIntoNoFileAndDataThatIsLostIsAnError) {
  struct Case {
    const char* name;
    const char* streams;
    int status;
  };
  const Case cases[] = {
      {"no output", ">&- 2>/dev/null", 1},
      {"no input, no output", "<&- >&- 2>/dev/null", 1},
      {"no error stream", ">/dev/null 2>&-", 0},
      {"no input, no error stream", "<&- >/dev/null 2>&-", 0},
      {"none", "<&- >&- 2>&-", 1},
  };
  AddDomain();
  AddMailbox("al@example.org");
  std::string settings = dir_.Read("brisq.toml");
  dir_.Write("brisq.toml", settings.replace(settings.find("[log]\n"), 6, "[log]\nlevel = 9\n"));
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.status, RunWith(c.streams, "mailbox passwd al@example.org --generate"));
    EXPECT_EQ(c.status, RunWith(c.streams, "mailbox list"));
    EXPECT_THAT(Strangers(), IsEmpty());
  }
}

TEST_F(StandardStreams, AMissingInputHoldsNoPassword) {
  AddDomain();
  EXPECT_EQ(10, RunWith("<&- 2>'" + (beside_ / "err") + "'",
                        "mailbox add al@example.org --password-stdin"));
  EXPECT_EQ("brisq: invalid-input: password: must not be empty\n", beside_.Read("err"));
}

}  // namespace
}  // namespace brisq
