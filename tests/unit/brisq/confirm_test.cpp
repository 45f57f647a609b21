#include "brisq/confirm.h"

#include <gtest/gtest.h>

#include <sstream>

#include "brisq/output.h"
#include "mgr_err.h"

namespace brisq {
namespace {

struct Outcome {
  std::string error;  // type; empty when the command may go on
  std::string shown;
};

Outcome Ask(const std::string& answer, bool interactive, bool yes) {
  std::istringstream in(answer);
  std::ostringstream out;
  std::ostringstream err;
  const Console console{in, out, err, interactive};
  Output output(console, false);
  Arguments arguments;
  if (yes) arguments.Add("--yes", "");
  const Call call{arguments, output, console};
  Outcome outcome;
  try {
    Confirm(call, "Delete \x1b it?");
  } catch (const mgr_err::Error& error) {
    outcome.error = error.type();
  }
  outcome.shown = out.str() + err.str();
  return outcome;
}

TEST(Confirm, OnlyAYesLetsTheCommandGoOn) {
  struct Case {
    const char* name;
    const char* answer;
    bool interactive;
    bool yes;
    const char* error;
  };
  const Case cases[] = {
      {"y", "y\n", true, false, ""},
      {"Y", "Y\n", true, false, ""},
      {"yes", "yes\n", true, false, ""},
      {"n", "n\n", true, false, "limit"},
      {"return", "\n", true, false, "limit"},
      {"end of input", "", true, false, "limit"},
      {"yellow", "yellow\n", true, false, "limit"},
      {"no terminal", "y\n", false, false, "usage"},
      {"beforehand", "", false, true, ""},
      {"beforehand at a terminal", "n\n", true, true, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.error, Ask(c.answer, c.interactive, c.yes).error);
  }
}

TEST(Confirm, TheQuestionCanNotSteerTheTerminal) {
  EXPECT_EQ("Delete \\x1b it? [y/N] ", Ask("n\n", true, false).shown);
}

TEST(Confirm, NothingIsAskedWhenItWasAnsweredBeforehand) {
  EXPECT_EQ("", Ask("", true, true).shown);
}

}  // namespace
}  // namespace brisq
