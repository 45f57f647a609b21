#include "panel/passwd_lines.h"

#include <gmock/gmock.h>

namespace {

using brisq_panel::CheckPasswdLines;
using brisq_panel::ComparePasswdNames;
using brisq_panel::Finding;
using brisq_panel::FindingLine;
using brisq_panel::NewPasswdFindings;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kTail = "::/home/x:::maildir:~/.maildir userdb_quota_rule=*:bytes=0M\n";
const std::string kGood = "a@x:{X}h:1000:1000" + kTail;

std::vector<std::string> Codes(const std::vector<Finding>& findings) {
  std::vector<std::string> codes;
  for (const Finding& finding : findings) codes.push_back(finding.code);
  return codes;
}

std::vector<std::string> Lines(const std::vector<Finding>& findings) {
  std::vector<std::string> lines;
  for (const Finding& finding : findings) lines.push_back(FindingLine(finding));
  return lines;
}

TEST(PasswdLines, WhatIsMeantToBeThereIsNoFinding) {
  const std::vector<std::string> contents = {"", kGood, "# note\n\n:odd\n" + kGood,
                                             "a@x:{X}h:1000:1000::/h:::\r\n",
                                             "a@x:{X}h:1:4294967294::/h:::maildir:~/.maildir"};
  for (const std::string& content : contents) {
    SCOPED_TRACE(content);
    EXPECT_THAT(Lines(CheckPasswdLines("/users", content)), IsEmpty());
  }
}

TEST(PasswdLines, EachKindOfFaultHasItsFinding) {
  const struct {
    const char* name;
    std::string line;
    std::vector<std::string> codes;
  } cases[] = {
      {"eight columns", "a@x:{X}h:1:1::/h::", {"PASSWD-SHORT"}},
      {"a name alone", "a@x", {"PASSWD-NO-HASH", "PASSWD-SHORT"}},
      {"cut within the password", "a@x:{PLAIN}", {"PASSWD-OPEN", "PASSWD-SHORT"}},
      {"scheme without a hash", "a@x:{SHA512-CRYPT}:1:1" + kTail, {"PASSWD-OPEN"}},
      {"no password", "a@x::1:1" + kTail, {"PASSWD-NO-HASH"}},
      {"uid of root", "a@x:{X}h:0:1" + kTail, {"PASSWD-ROOT"}},
      {"gid of root with zeros", "a@x:{X}h:1:000" + kTail, {"PASSWD-ROOT"}},
      {"both of root", "a@x:{X}h:0:0" + kTail, {"PASSWD-ROOT", "PASSWD-ROOT"}},
      {"no uid", "a@x:{X}h::1" + kTail, {"PASSWD-ID"}},
      {"a name as gid", "a@x:{X}h:1:users" + kTail, {"PASSWD-ID"}},
      {"a negative uid", "a@x:{X}h:-1:1" + kTail, {"PASSWD-ID"}},
      {"a blank beside the gid", "a@x:{X}h:1: 1" + kTail, {"PASSWD-ID"}},
      {"a uid that is too long", "a@x:{X}h:10000000000:1" + kTail, {"PASSWD-ID"}},
      {"no home", "a@x:{X}h:1:1:::::m", {"PASSWD-HOME"}},
      {"a relative home", "a@x:{X}h:1:1::h:::m", {"PASSWD-HOME"}},
      {"nopassword", "a@x:{X}h:1:1::/h:::m nopassword", {"PASSWD-NOPASSWORD"}},
      {"nopassword with a value", "a@x:{X}h:1:1::/h:::m nopassword=y", {"PASSWD-NOPASSWORD"}},
      {"nopassword in the flags", "a@x:{X}h:1:1::/h::nopassword:m", {"PASSWD-NOPASSWORD"}},
      {"a word that holds nopassword", "a@x:{X}h:1:1::/h:::m nopasswords", {}},
      {"an expansion", "a@x:{X}h:1:1::/h:::maildir:%h/mail", {"PASSWD-PERCENT"}},
      {"an expansion in the flags", "a@x:{X}h:1:1::/h::a=%u:m", {"PASSWD-PERCENT"}},
      {"capital letters", "A@x:{X}h:1:1" + kTail, {"PASSWD-NAME"}},
      {"a blank before the name", " a@x:{X}h:1:1" + kTail, {"PASSWD-NAME"}},
      {"a line of blanks", "  ", {"PASSWD-NAME", "PASSWD-NO-HASH", "PASSWD-SHORT"}},
      {"CR within", "a@x:{X}h\r:1:1" + kTail, {"PASSWD-BYTES"}},
      {"NUL", std::string("a@x:{X}h\0:1:1", 13) + kTail, {"PASSWD-BYTES"}},
      {"no UTF-8", "a@x:{X}h:1:1::/h\xff:::m", {"PASSWD-BYTES"}},
  };
  for (const auto& item : cases) {
    SCOPED_TRACE(item.name);
    EXPECT_EQ(item.codes, Codes(CheckPasswdLines("/users", item.line)));
  }
}

TEST(PasswdLines, AFindingNamesTheLineAndTheRule) {
  EXPECT_THAT(
      Lines(CheckPasswdLines("/users", "# head\n" + kGood + "\nb@x:{X}h:0:1" + kTail + kGood)),
      ElementsAre("PASSWD-ROOT error /users, line 4: b@x has the uid 0, which Dovecot refuses "
                  "(fix: set the uid of the mailbox's owner)",
                  "PASSWD-DUPLICATE error /users, line 5: a@x appears in lines 2 and 5, of which "
                  "Dovecot uses line 2 (fix: remove one of them)"));
}

TEST(PasswdLines, NoFindingTellsAHash) {
  for (const char* line : {"a@x:{X}SECRET", "a@x:{X}SECRET:0:q::h:::%u nopassword\n",
                           "A @x:{X}SECRET\x01:0:0::h:::m\n"}) {
    for (const Finding& finding : CheckPasswdLines("/users", std::string(line) + "\n" + line)) {
      EXPECT_EQ(std::string::npos, FindingLine(finding).find("SECRET")) << FindingLine(finding);
    }
  }
}

TEST(PasswdLines, WhatWasWrongBeforeAnEditIsNotNew) {
  const std::string bad = "z@x:{X}h:0:1" + kTail;
  const struct {
    const char* name;
    std::string before, after;
    std::vector<std::string> codes;
  } cases[] = {
      {"nothing done", bad, bad, {}},
      {"a good line before it", bad, kGood + bad, {}},
      {"the bad line twice", bad, bad + bad, {"PASSWD-DUPLICATE", "PASSWD-ROOT"}},
      {"the bad line changed and still bad", bad, "z@x:{X}i:0:1" + kTail, {"PASSWD-ROOT"}},
      {"mended", bad, "z@x:{X}h:1:1" + kTail, {}},
      {"a new bad one", kGood, kGood + bad, {"PASSWD-ROOT"}},
  };
  for (const auto& item : cases) {
    SCOPED_TRACE(item.name);
    EXPECT_EQ(item.codes, Codes(NewPasswdFindings("/users", item.before, item.after)));
  }
}

TEST(PasswdLines, NamesAreComparedBothWays) {
  const std::string content =
      kGood + "b@x:{X}h:1:1" + kTail + "c@x:{X}h:1:1" + kTail + "d@x:short\n";
  const auto findings =
      ComparePasswdNames("/users", content, {"a@x", "d@x", "e@x"}, {"b@x", "f@x"});
  EXPECT_THAT(
      Lines(findings),
      ElementsAre(
          "PASSWD-INACTIVE error /users, line 2: mailbox b@x is switched off, but its line lets "
          "its "
          "user in (fix: brisq sync)",
          "PASSWD-STRANGER warning /users, line 3: c@x is no mailbox of the panel (fix: brisq "
          "passwd-file edit: take the line out, and then add a mailbox of this name if there is to "
          "be one)",
          "PASSWD-NO-LINE error e@x: the mailbox has no line in /users, so nobody can log in (fix: "
          "brisq sync, or brisq mailbox delete e@x)"));
}

}  // namespace
