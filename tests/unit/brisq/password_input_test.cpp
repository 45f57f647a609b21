#include "brisq/password_input.h"

#include <gtest/gtest.h>

#include <sstream>

#include "mgr_err.h"

namespace brisq {
namespace {

std::string Read(const std::string& input, bool interactive = false, std::string* shown = nullptr) {
  std::istringstream in(input);
  std::ostringstream out;
  std::ostringstream err;
  const Console console{in, out, err, interactive};
  const std::string password = ReadPassword(console);
  if (shown) *shown = out.str() + err.str();
  return password;
}

std::string Refusal(const std::string& input, bool interactive = false) {
  try {
    Read(input, interactive);
  } catch (const mgr_err::Error& error) {
    return error.what();
  }
  return "accepted";
}

TEST(PasswordInput, TakesEverythingButOneLineFeedAtTheEnd) {
  struct Case {
    const char* name;
    std::string input;
    std::string password;
  };
  const Case cases[] = {
      {"without line feed", "secret", "secret"},
      {"with line feed", "secret\n", "secret"},
      {"two line feeds", "secret\n\n", "secret\n"},
      {"blanks", "  se cret \n", "  se cret "},
      {"carriage return", "secret\r\n", "secret\r"},
      {"NUL", std::string("a\0b\n", 4), std::string("a\0b", 3)},
      {"longest", std::string(4096, 'x'), std::string(4096, 'x')},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.password, Read(c.input));
  }
}

TEST(PasswordInput, RefusesNoPasswordAndTooMuch) {
  EXPECT_EQ("value: password: must not be empty", Refusal(""));
  EXPECT_EQ("value: password: must not be empty", Refusal("\n"));
  EXPECT_EQ("value: password: too long (max 4096 bytes)", Refusal(std::string(4097, 'x')));
}

TEST(PasswordInput, ATerminalIsAskedTwiceAndSeesNoPassword) {
  std::string shown;
  EXPECT_EQ("secret", Read("secret\nsecret\n", true, &shown));
  EXPECT_EQ("Password: \nOnce more: \n", shown);
}

TEST(PasswordInput, TwoDifferentEntriesAreRefused) {
  EXPECT_EQ("value: password: the two entries differ", Refusal("secret\nsecert\n", true));
}

}  // namespace
}  // namespace brisq
