#include "brisq/exit_codes.h"

#include <gtest/gtest.h>

#include <set>

namespace brisq {
namespace {

TEST(ExitCodes, EachTypeHasItsLabelAndCode) {
  struct Case {
    const char* name;
    const char* type;
    const char* label;
    int code;
  };
  const Case cases[] = {
      {"command line", "usage", "usage", 2},
      {"unknown name", "missed", "not-found", 4},
      {"taken name", "exists", "exists", 6},
      {"held lock", "locked", "locked", 7},
      {"limit", "limit", "limit", 8},
      {"Dovecot side", "email", "dovecot", 9},
      {"bad input", "value", "invalid-input", 10},
      {"later", "later", "try-later", 75},
      {"file", "file", "failed", 1},
      {"never heard of", "nonsense", "failed", 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const ErrorKind& kind = KindOf(mgr_err::Error(c.type));
    EXPECT_STREQ(c.label, kind.label);
    EXPECT_EQ(c.code, kind.exit_code);
  }
}

TEST(ExitCodes, NoTypeStandsTwice) {
  std::set<std::string> types;
  for (const ErrorKind& kind : ErrorKinds())
    EXPECT_TRUE(types.insert(kind.type).second) << kind.type;
}

TEST(ExitCodes, TheLineNamesTheThingAndTheRule) {
  EXPECT_EQ("brisq: invalid-input: mailbox name: line break not allowed",
            ErrorLine(mgr_err::Error("value", "mailbox name", "line break not allowed")));
}

TEST(ExitCodes, EmptyPartsLeaveNoColons) {
  EXPECT_EQ("brisq: locked", ErrorLine(mgr_err::Error("locked")));
  EXPECT_EQ("brisq: locked: database", ErrorLine(mgr_err::Error("locked", "database")));
  EXPECT_EQ("brisq: failed: disk full", ErrorLine(mgr_err::Error("file", "", "disk full")));
}

TEST(ExitCodes, TheLineStaysOneLineWhateverIsInIt) {
  const std::string line =
      ErrorLine(mgr_err::Error("email", "doveadm", "first\nsecond\x1b[2J\r\n\n"));
  EXPECT_EQ("brisq: dovecot: doveadm: first; second\\x1b[2J", line);
}

TEST(ExitCodes, LinesOfAMessageAreJoinedAndEmptyOnesLeftOut) {
  EXPECT_EQ("brisq: dovecot: doveadm: a; b c; d",
            ErrorLine(mgr_err::Error("email", "doveadm", "\n a\r\n\n \nb c  \n\td\n\n")));
  EXPECT_EQ("brisq: dovecot: doveadm", ErrorLine(mgr_err::Error("email", "doveadm\n", "")));
}

TEST(ExitCodes, EveryByteThatIsNoPrintableCharacterIsEscaped) {
  for (int byte = 0; byte < 256; ++byte) {
    SCOPED_TRACE(byte);
    const std::string text(1, static_cast<char>(byte));
    const bool printable = byte >= 0x20 && byte < 0x7F;
    EXPECT_EQ(printable, Printable(text) == text);
  }
}

TEST(ExitCodes, WordsOfOtherLanguagesAndEscapesStay) {
  const struct {
    const char* text;
    const char* shown;
  } cases[] = {
      {"gr\xc3\xbc\xc3\x9f", "gr\xc3\xbc\xc3\x9f"},
      {"a\\x0ab\\", "a\\x0ab\\"},
      {"\\", "\\"},
      {"\\\x1b\\", "\\\\x1b\\"},
      {"\xc2\x9b[31m", "\\xc2\\x9b[31m"},
      {"\xe2\x80\xaetxt", "\\xe2\\x80\\xaetxt"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.shown);
    EXPECT_EQ(c.shown, Printable(c.text));
  }
}

}  // namespace
}  // namespace brisq
