#include "brisq/on_off.h"

#include <gtest/gtest.h>

#include <sstream>

#include "brisq/output.h"
#include "mgr_err.h"

namespace brisq {
namespace {

std::optional<bool> Parse(const Arguments& arguments) {
  std::istringstream in;
  std::ostringstream out;
  const Console console{in, out, out, false};
  Output output(console, false);
  return OnOff(Call{arguments, output, console}, "--active");
}

std::optional<bool> Parse(const std::string& text) {
  Arguments arguments;
  arguments.Add("--active", text);
  return Parse(arguments);
}

TEST(OnOff, KnowsThreeStates) {
  EXPECT_EQ(std::optional<bool>(true), Parse("on"));
  EXPECT_EQ(std::optional<bool>(false), Parse("off"));
  EXPECT_EQ(std::nullopt, Parse(Arguments()));
}

TEST(OnOff, RefusesEverythingElse) {
  for (const char* text : {"", "ON", "yes", "1", "on ", "of"}) {
    SCOPED_TRACE(text);
    EXPECT_THROW(Parse(text), mgr_err::Error);
  }
}

}  // namespace
}  // namespace brisq
