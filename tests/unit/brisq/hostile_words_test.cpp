// Hostile words on the command line of the built program: refused by name, and nothing changes.

#include "tests/unit/brisq/instance_fixture.h"

namespace brisq {
namespace {

using testing::HasSubstr;

struct Hostile {
  const char* words;  // for the shell
  int status;
  const char* error;
};

const Hostile kHostile[] = {
    {"mailbox add -- -x@example.org --generate", 2, "brisq: usage"},
    {"mailbox add --generate -- -x@example.org", 10, "must start with a letter or digit"},
    {"mailbox add --generate -- --help@example.org", 10, "must start with a letter or digit"},
    {"mailbox add --generate \"$(printf 'a\\nroot@example.org')\"", 10, "line break not allowed"},
    {"mailbox add --generate \"$(printf 'a\\033[2J@example.org')\"", 10,
     "control character not allowed"},
    {"mailbox add --generate \"$(printf 'a\\377@example.org')\"", 10, "not valid UTF-8"},
    {"mailbox add --generate a:b@example.org", 10, "':' not allowed"},
    {"mailbox add --generate a%u@example.org", 10, "'%' not allowed"},
    {"mailbox add --generate ../a@example.org", 10, "'/' not allowed"},
    {"mailbox add --generate \"a'--@example.org\"", 10, "only letters, digits"},
    {"mailbox add --generate 'a;reboot@example.org'", 10, "only letters, digits"},
    {"mailbox add --generate a@b@example.org", 10, "must be LOCALPART@DOMAIN"},
    {"mailbox add --generate @example.org", 10, "must not be empty"},
    {"mailbox add --generate a@", 10, "must not be empty"},
    {"mailbox add --generate a@example.org --home relative", 10, "must be an absolute path"},
    {"mailbox add --generate a@example.org --home /etc", 10, "must lie below its owner's home"},
    {"mailbox add --generate a@example.org --home /home/../etc", 10, "must have no '.', '..'"},
    {"mailbox add --generate a@example.org --quota -5", 10, "must be a whole number"},
    {"mailbox add --generate a@example.org --quota '5 nopassword'", 10, "must be a whole number"},
    {"mailbox set bob@example.org --quota 99999999999", 10, "too large"},
    {"mailbox set bob@example.org --home \"$(printf '/a\\nb')\"", 10, "line break not allowed"},
    {"mailbox delete --yes \"' OR '1'='1@example.org\"", 10, "must start with a letter or digit"},
    {"domain add --owner demo -- -x.org", 10, "must start with a letter or digit"},
    {"domain add --owner demo ../x", 10, "'/' not allowed"},
    {"domain add --owner demo 'x.org;id'", 10, "not a valid domain name"},
    {"domain delete --yes \"x'--\"", 10, "not a valid domain name"},
    {"owner add Root --uid 5001 --gid 5001 --home /home/r", 10, "must start with a lower-case"},
    {"owner add root2 --uid 0 --gid 5001 --home /home/r", 10, "0 not allowed"},
    {"owner add root2 --uid 5001 --gid -1 --home /home/r", 10, "must be 1 to"},
    {"owner add root2 --uid 5001 --gid 5001 --home '/home/$HOME'", 10, "'$' not allowed"},
};

TEST(HostileWordsTable, IsLongEnough) { EXPECT_GE(std::size(kHostile), 30U); }

class HostileWordsTest : public InstanceTest {};

TEST_F(HostileWordsTest, AreRefusedByTheirRuleAndChangeNothing) {
  AddDomain();
  AddMailbox("bob@example.org");
  const auto before = Everything();
  for (const Hostile& hostile : kHostile) {
    SCOPED_TRACE(hostile.words);
    const Ran ran = Expect(hostile.status, hostile.words);
    EXPECT_THAT(ran.err, HasSubstr(hostile.error));
    EXPECT_EQ("", ran.out);
    EXPECT_EQ(std::string::npos, ran.err.find('\x1b'));
  }
  EXPECT_EQ("", ChangedSince(before));
}

// A NUL ends a word of a command line, but a password comes as it is.
TEST_F(HostileWordsTest, APasswordWithANulOrALineBreakIsRefused) {
  AddDomain();
  const auto before = Everything();
  for (const std::string& password :
       {std::string("abc\0def\n", 8), std::string("abc\ndef\n"), std::string("abc\rdef\n"),
        std::string("\x1b[2J\n"), std::string("a\xff\n"), std::string("\n"),
        std::string(600, 'x') + "\n", std::string(5000, 'x') + "\n"}) {
    SCOPED_TRACE(testing::PrintToString(password.substr(0, 20)));
    const Ran ran = Expect(10, "mailbox add a@example.org --password-stdin", password);
    EXPECT_THAT(ran.err, HasSubstr("brisq: invalid-input: password: "));
  }
  EXPECT_EQ("", ChangedSince(before));
}

}  // namespace
}  // namespace brisq
