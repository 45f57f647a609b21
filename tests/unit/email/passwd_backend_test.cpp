#include "email/passwd_backend.h"

#include <algorithm>

#include "mgr_err.h"
#include "tests/unit/email/plugin_fixture.h"

using recording::BackEnd;
using recording::Calls;
using recording::Outcome;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

/// A listing, a wish, and what must come of them.
struct SchemeCase {
  const char* name;
  Outcome listing;
  std::string wish;
  std::string chosen;
  Calls messages;  ///< debug messages without their line number
};

std::string Unsupported(const std::string& wish) {
  return "log 4: Specified DovecotPwScheme " + wish + " isn't supported by dovecot.";
}

const std::string kCram = "log 9: email_dovecot:LINE Using CRAM-MD5 as default DovecotPwScheme";
const std::string kClear = "log 9: email_dovecot:LINE Using CLEARTEXT as default DovecotPwScheme";

const std::vector<SchemeCase> kSchemeCases = {
    {"a listed wish is taken and nothing is logged",
     {"PLAIN CRAM-MD5 SHA512-CRYPT"},
     "SHA512-CRYPT",
     "SHA512-CRYPT",
     {}},
    {"the first of the list", {"PLAIN CRAM-MD5 SHA512-CRYPT"}, "PLAIN", "PLAIN", {}},
    {"another case is no match",
     {"PLAIN CRAM-MD5 SHA512-CRYPT"},
     "sha512-crypt",
     "CRAM-MD5",
     {Unsupported("sha512-crypt"), kCram}},
    {"a prefix of a name is no match",
     {"PLAIN CRAM-MD5 SHA512-CRYPT"},
     "SHA512",
     "CRAM-MD5",
     {Unsupported("SHA512"), kCram}},
    {"a name with a blank is no match",
     {"PLAIN CRAM-MD5"},
     "PLAIN ",
     "CRAM-MD5",
     {Unsupported("PLAIN "), kCram}},
    {"an empty wish is logged with an empty name",
     {"PLAIN CRAM-MD5 SHA512-CRYPT"},
     "",
     "CRAM-MD5",
     {Unsupported(""), kCram}},
    {"an empty wish never matches the piece that holds only a line break",
     {"PLAIN CRAM-MD5 \n"},
     "",
     "CRAM-MD5",
     {Unsupported(""), kCram}},
    {"the last name before a line break matches",
     {"PLAIN CRAM-MD5 SHA512-CRYPT\n"},
     "SHA512-CRYPT",
     "SHA512-CRYPT",
     {}},
    {"the last name before a blank and a line break matches",
     {"PLAIN CRAM-MD5 SHA512-CRYPT \n"},
     "SHA512-CRYPT",
     "SHA512-CRYPT",
     {}},
    {"two blanks in a row and at the ends make no entries",
     {"  PLAIN  CRAM-MD5  "},
     "CRAM-MD5",
     "CRAM-MD5",
     {}},
    {"the first of two names parted by a line break only is no match",
     {"PLAIN CRAM-MD5\nSHA512-CRYPT"},
     "CRAM-MD5",
     "CLEARTEXT",
     {Unsupported("CRAM-MD5"), kClear}},
    {"the second of two names parted by a line break only is no match",
     {"CRAM-MD5 PLAIN\nSHA512-CRYPT"},
     "SHA512-CRYPT",
     "CRAM-MD5",
     {Unsupported("SHA512-CRYPT"), kCram}},
    {"without CRAM-MD5 the default is CLEARTEXT, listed or not",
     {"PLAIN SHA512-CRYPT"},
     "BLF-CRYPT",
     "CLEARTEXT",
     {Unsupported("BLF-CRYPT"), kClear}},
    {"an empty listing", {""}, "PLAIN", "CLEARTEXT", {Unsupported("PLAIN"), kClear}},
    {"a failing tool is logged with its output and no wish counts",
     {"CRAM-MD5 PLAIN\n", 89},
     "CRAM-MD5",
     "CLEARTEXT",
     {"log 3: doveadm call failed: CRAM-MD5 PLAIN\n", Unsupported("CRAM-MD5"), kClear}},
    {"a tool that is missing",
     {"", 127},
     "",
     "CLEARTEXT",
     {"log 3: doveadm call failed: ", Unsupported(""), kClear}},
};

class SchemeChoice : public recording::PluginTest {
 protected:
  SchemeChoice() { host.paths["dovecot-doveadm"] = "/d"; }

  /// Log lines, with LINE instead of the number in a debug message.
  Calls Messages() {
    Calls messages = host.Calls("log ");
    for (std::string& message : messages) {
      const std::string prefix = "log 9: email_dovecot:";
      if (!message.starts_with(prefix)) continue;
      message.replace(prefix.size(), message.find(' ', prefix.size()) - prefix.size(), "LINE");
    }
    return messages;
  }

  std::string Chosen(const BackEnd& back_end) {
    host.runs.clear();
    host.tool = nullptr;
    back_end.passwords().CryptPw("n", "p");
    const std::string& command = host.runs.at(0).command;
    const std::string before = "/d pw -s ";
    return command.substr(before.size(), command.find(" -u ") - before.size());
  }
};

TEST_F(SchemeChoice, FollowsTheListingAndTheWish) {
  host.log_level = 9;
  for (const SchemeCase& c : kSchemeCases) {
    SCOPED_TRACE(c.name);
    host.params["DovecotPwScheme"] = c.wish;
    host.tool = [&](const std::string& command, const std::string& input) {
      EXPECT_EQ("/d pw -l", command);
      EXPECT_EQ("", input);
      return c.listing;
    };
    host.ForgetCalls();
    const BackEnd back_end;
    EXPECT_EQ(c.messages, Messages());
    EXPECT_EQ(c.chosen, Chosen(back_end));
  }
}

TEST_F(SchemeChoice, WritesNothingAboveTheLevelOfTheLog) {
  for (const int level : {2, 3, 4, 8}) {
    SCOPED_TRACE(level);
    host.log_level = level;
    host.tool = [](const std::string&, const std::string&) { return Outcome{"no", 1}; };
    host.ForgetCalls();
    const BackEnd back_end;
    EXPECT_EQ(level < 3 ? 0U : level < 4 ? 1U : 2U, host.Calls("log ").size());
  }
}

TEST_F(SchemeChoice, DebugMessagesNameTheLineThatLogs) {
  host.log_level = 9;
  for (const char* scheme : {"CRAM-MD5", "CLEARTEXT"}) {
    host.tool = [&](const std::string&, const std::string&) { return Outcome{scheme}; };
    host.ForgetCalls();
    const BackEnd back_end;
    const std::string message = host.Calls("log 9").at(0);
    EXPECT_TRUE(recording::IsLoggedAt(message, "passwd_backend.cpp",
                                      std::string("Using ") + scheme + " as default"))
        << message;
  }
}

TEST_F(SchemeChoice, TheToolIsGivenUpBeforeTheChoice) {
  host.tool = [](const std::string&, const std::string&) { return Outcome{"PLAIN"}; };
  host.params["DovecotPwScheme"] = "NONE";
  const BackEnd back_end;
  EXPECT_THAT(host.Calls(),
              ElementsAre("GetPath dovecot-passwd", "GetPath dovecot-doveadm", "GetParam EmailAuth",
                          "GetPath dovecot-passwd", "GetPath dovecot-doveadm",
                          "GetParam DovecotPwScheme", "Execute 2 '/d pw -l'", "Str", "Result",
                          "~Execute", Unsupported("NONE"), "ModuleInterface mail dovecot"));
}

TEST_F(SchemeChoice, AnEmptyDoveadmPathIsStoredAsItIs) {
  host.paths["dovecot-doveadm"] = "";
  const BackEnd back_end;
  EXPECT_EQ(" pw -l", host.runs.at(0).command);
  back_end.passwords().CryptPw("a@b", "p");
  EXPECT_EQ(" pw -s CLEARTEXT -u a@b", host.runs.at(1).command);
}

class Hashing : public recording::PluginTest {
 protected:
  Hashing() : back_end_(NewBackEnd()) {}

  std::string Hash(const std::string& name, const std::string& password, const Outcome& outcome) {
    host.tool = [outcome](const std::string&, const std::string&) { return outcome; };
    return back_end_->passwords().CryptPw(name, password);
  }

  std::unique_ptr<BackEnd> back_end_;
};

TEST_F(Hashing, RunsDoveadmWithThePasswordTwiceOnItsInput) {
  EXPECT_EQ("{CRAM-MD5}ab", Hash("joe@example.org", "secret", {"{CRAM-MD5}ab\n"}));
  ASSERT_EQ(1U, host.runs.size());
  EXPECT_EQ("/d pw -s CRAM-MD5 -u joe@example.org", host.runs[0].command);
  EXPECT_EQ(3, host.runs[0].mode);
  EXPECT_EQ("secret\nsecret\n", host.runs[0].input);
  EXPECT_THAT(host.Calls(), ElementsAreArray(Hashing::PluginTest::Hashing("joe@example.org")));
}

TEST_F(Hashing, SchemeCleartextStoresWhatTheToolPrints) {
  host.params["DovecotPwScheme"] = "CLEARTEXT";
  host.tool = [](const std::string&, const std::string&) { return Outcome{"CLEARTEXT \n"}; };
  const BackEnd back_end;
  host.tool = [](const std::string& command, const std::string&) {
    EXPECT_EQ("/d pw -s CLEARTEXT -u a@b", command);
    return Outcome{"{CLEARTEXT}p:w\n"};
  };
  EXPECT_EQ("{CLEARTEXT}p:w", back_end.passwords().CryptPw("a@b", "p:w"));
}

TEST_F(Hashing, ANameWithBlanksAndShellCharactersIsPassedUnquoted) {
  const std::string name = "a b;$(reboot)`x`'\"|&<>*@example.org";
  Hash(name, "p", {"h"});
  EXPECT_EQ("/d pw -s CRAM-MD5 -u " + name, host.runs[0].command);
  EXPECT_EQ(3, host.runs[0].mode);
}

TEST_F(Hashing, EveryByteOfThePasswordGoesThroughUnescaped) {
  std::string password;
  for (int byte = 0; byte < 256; ++byte) password += static_cast<char>(byte);
  Hash("a@b", password, {"h"});
  EXPECT_EQ(password + "\n" + password + "\n", host.runs[0].input);
  EXPECT_EQ("/d pw -s CRAM-MD5 -u a@b", host.runs[0].command);
}

TEST_F(Hashing, OutputIsTrimmedAtItsEndsOnly) {
  EXPECT_EQ("inner  space\nand line", Hash("a@b", "p", {" \t\r\n inner  space\nand line \n\n"}));
}

TEST_F(Hashing, EmptyOutputGivesAnEmptyHash) { EXPECT_EQ("", Hash("a@b", "p", {"\n"})); }

TEST_F(Hashing, AFailingToolBecomesAMailErrorWithItsWholeOutput) {
  try {
    Hash("a@b", "p", {" Fatal: Unknown scheme: X\n", 1});
    FAIL() << "hashed";
  } catch (const email::Fail& error) {
    EXPECT_EQ("email", error.type());
    EXPECT_EQ("doveadm", error.object());
    EXPECT_EQ(" Fatal: Unknown scheme: X\n", error.value());
    EXPECT_TRUE(error.report());
  }
  EXPECT_EQ("~Execute", host.Calls().back());
}

TEST_F(Hashing, ThePasswordIsNeverInACommandOrALogLine) {
  host.log_level = 9;
  EXPECT_THROW(Hash("a@b", "hunter2", {"no", 1}), email::Fail);
  for (const std::string& call : host.Calls()) {
    EXPECT_EQ(std::string::npos, call.find("hunter2")) << call;
  }
}

/// The password back-end over a file with three lines.
class Passwords : public recording::PluginTest {
 protected:
  Passwords() : back_end_(NewBackEnd()), passwords_(back_end_->passwords()) {
    host.lines = {{"ann@x.org", "old-a", "1", "2", "", "/a", "", "", "m"},
                  {"bob@x.org", "old-b", "1", "2", "i", "/b", "s", "f", "m"},
                  {"cy@x.org", "old-c", "1", "2", "", "/c", "", "", "m"}};
    host.tool = [](const std::string&, const std::string& input) {
      return Outcome{" hash-of-" + input.substr(0, input.find('\n')) + "\n"};
    };
  }

  std::unique_ptr<BackEnd> back_end_;
  email::PasswdInterface& passwords_;
};

TEST_F(Passwords, UpdateFindsTheLineThenHashesThenPosts) {
  passwords_.Update("bob@x.org", "new");
  EXPECT_THAT(host.Calls(), ElementsAreArray(Join({Opening(),
                                                   {"Assert bob@x.org"},
                                                   Hashing("bob@x.org"),
                                                   {"Set passwd 'hash-of-new'", "Post line ''"},
                                                   Reload()})));
  EXPECT_EQ((recording::Line{"bob@x.org", "hash-of-new", "1", "2", "i", "/b", "s", "f", "m"}),
            host.lines[1]);
}

TEST_F(Passwords, CreateIsAnUpdate) {
  passwords_.Update("bob@x.org", "new");
  const Calls update = host.Calls();
  host.ForgetCalls();
  passwords_.Create("bob@x.org", "new");
  EXPECT_EQ(update, host.Calls());
}

TEST_F(Passwords, CreateAndUpdateEachHashAfresh) {
  passwords_.Create("bob@x.org", "new");
  passwords_.Update("bob@x.org", "new");
  EXPECT_EQ(2U, host.runs.size());
  EXPECT_EQ(2U, host.Calls("Post line").size());
}

TEST_F(Passwords, CreateUsesAnOverriddenUpdate) {
  class Derived : public recording::DovecotInterface::DovPwdInterface {
   public:
    void Update(const std::string& name, const std::string& password) override {
      seen += name + "/" + password;
    }
    std::string seen;
  };
  Derived derived;
  email::PasswdInterface& interface = derived;
  interface.Create("a@b", "p");
  EXPECT_EQ("a@b/p", derived.seen);
}

TEST_F(Passwords, AnEmptyPasswordChangesNothingEvenWithoutALine) {
  for (const char* name : {"bob@x.org", "nobody@x.org"}) {
    passwords_.Create(name, "");
    passwords_.Update(name, "");
  }
  EXPECT_THAT(host.Calls(), IsEmpty());
}

TEST_F(Passwords, UpdateOfAnUnknownMailboxFailsBeforeTheToolIsStarted) {
  EXPECT_THROW(passwords_.Update("nobody@x.org", "new"), mgr_err::Error);
  EXPECT_THAT(host.Calls(), ElementsAreArray(Join({Opening(), {"Assert nobody@x.org"}})));
  EXPECT_THAT(host.runs, IsEmpty());
}

TEST_F(Passwords, AFailingToolLeavesTheLine) {
  host.tool = [](const std::string&, const std::string&) { return Outcome{"why\n", 75}; };
  EXPECT_THROW(passwords_.Update("bob@x.org", "new"), email::Fail);
  EXPECT_EQ("old-b", host.Column("bob@x.org", 2));
  EXPECT_THAT(host.Calls("Set"), IsEmpty());
  EXPECT_THAT(host.Calls("Post"), IsEmpty());
}

TEST_F(Passwords, DeleteRemovesTheWholeLine) {
  passwords_.Delete("bob@x.org");
  EXPECT_THAT(host.Calls(),
              ElementsAreArray(Join({Opening(), {"Find bob@x.org", "_Delete true"}, Reload()})));
  EXPECT_EQ("(no line)", host.Column("bob@x.org", 1));
  EXPECT_EQ(2U, host.lines.size());
}

TEST_F(Passwords, DeleteOfAnUnknownMailboxSavesNothing) {
  passwords_.Delete("nobody@x.org");
  EXPECT_THAT(host.Calls(), ElementsAreArray(Join({Opening(), {"Find nobody@x.org"}})));
  EXPECT_EQ(3U, host.lines.size());
}

TEST_F(Passwords, AFileThatCannotBeOpenedReachesTheCaller) {
  for (const int step : {0, 1}) {
    host.ForgetCalls();
    host.fail_at = step;
    EXPECT_THROW(passwords_.Update("bob@x.org", "new"), mgr_err::Error);
    host.ForgetCalls();
    EXPECT_THROW(passwords_.Delete("bob@x.org"), mgr_err::Error);
  }
  EXPECT_THAT(host.runs, IsEmpty());
  EXPECT_EQ(3U, host.lines.size());
}

TEST_F(Passwords, PathsAndSchemeStayAsTheyWereAtConstruction) {
  host.paths = {{"dovecot-passwd", "/other"}, {"dovecot-doveadm", "/other"}};
  host.params["DovecotPwScheme"] = "PLAIN";
  passwords_.Update("bob@x.org", "new");
  EXPECT_THAT(host.Calls("Get"), IsEmpty());
  EXPECT_EQ(Opening()[0], host.Calls()[0]);
  EXPECT_EQ("/d pw -s CRAM-MD5 -u bob@x.org", host.runs[0].command);
}

// Every step of an update: before the post nothing is changed, afterwards the change stands.
TEST_F(Passwords, AnExceptionAtEachStepOfUpdateReleasesTheCursor) {
  const int post = 8;  // Opening 2, Assert, Execute, In, Result, Str, Set, and then the post
  for (int step = 0; step <= post + 1; ++step) {
    SCOPED_TRACE(step);
    host.lines[1][1] = "old-b";
    host.ForgetCalls();
    host.fail_at = step;
    EXPECT_THROW(passwords_.Update("bob@x.org", "new"), mgr_err::Error);
    EXPECT_EQ(step <= post ? "old-b" : "hash-of-new", host.Column("bob@x.org", 2));
    EXPECT_EQ(0, host.cursors_out);
  }
}

/// The walk over all lines, with mailboxes that the panel knows.
class PasswordCache : public Passwords {
 protected:
  PasswordCache() {
    host.mailboxes = {{"ann@x.org", {"ann", "x.org", "pa", "/a"}},
                      {"bob@x.org", {"bob", "x.org", "", "/b"}},
                      {"cy@x.org", {"cy", "x.org", "pc", "/c"}}};
  }
  static Calls Taking() { return {"take email", "take domain"}; }
  static Calls GivingBack() { return {"give back domain", "give back email"}; }
};

TEST_F(PasswordCache, HashesEachKnownPasswordAndPostsWhatDiffers) {
  host.lines[2][1] = "hash-of-pc";
  passwords_.CachePasswords();
  EXPECT_THAT(host.Calls(),
              ElementsAreArray(Join({Opening(),
                                     Taking(),
                                     {"First", "FindByEmailName ann@x.org", "open password"},
                                     Hashing("ann@x.org"),
                                     {"Set passwd 'hash-of-pa'", "Post line ''"},
                                     Reload(),
                                     {"Next", "FindByEmailName bob@x.org", "open password", "Next",
                                      "FindByEmailName cy@x.org", "open password"},
                                     Hashing("cy@x.org"),
                                     {"Next"},
                                     GivingBack()})));
}

TEST_F(PasswordCache, AnEmptyFileHashesAndPostsNothing) {
  host.lines.clear();
  passwords_.CachePasswords();
  EXPECT_THAT(host.Calls(), ElementsAreArray(Join({Opening(), Taking(), {"First"}, GivingBack()})));
}

TEST_F(PasswordCache, ALineWithTheFreshHashIsNotPosted) {
  host.lines = {{"ann@x.org", "hash-of-pa"}};
  passwords_.CachePasswords();
  EXPECT_EQ(1U, host.runs.size());
  EXPECT_THAT(host.Calls("Set"), IsEmpty());
  EXPECT_THAT(host.Calls("Post"), IsEmpty());
}

TEST_F(PasswordCache, AHashEditedByHandIsPutBackToThePanelsPassword) {
  for (const char* edited : {"by hand", "hash-of-p", "hash-of-pa ", "HASH-OF-PA", ""}) {
    SCOPED_TRACE(edited);
    host.lines[0][1] = edited;
    passwords_.CachePasswords();
    EXPECT_EQ("hash-of-pa", host.Column("ann@x.org", 2));
  }
}

TEST_F(PasswordCache, AMailboxWithoutAPasswordKeepsItsHash) {
  passwords_.CachePasswords();
  EXPECT_EQ("old-b", host.Column("bob@x.org", 2));
}

TEST_F(PasswordCache, ALineThatThePanelDoesNotKnowIsSkipped) {
  host.mailboxes.erase("ann@x.org");
  passwords_.CachePasswords();
  EXPECT_EQ("old-a", host.Column("ann@x.org", 2));
  EXPECT_EQ("hash-of-pc", host.Column("cy@x.org", 2));
  EXPECT_EQ(1U, host.runs.size());
}

TEST_F(PasswordCache, TheAddressIsBuiltFromThePanelsRecords) {
  host.lines = {{"ANN@X.Org", "old"}};
  host.spelled["ANN@X.Org"] = "ann@x.org";
  passwords_.CachePasswords();
  EXPECT_EQ("/d pw -s CRAM-MD5 -u ann@x.org", host.runs.at(0).command);
  EXPECT_EQ("hash-of-pa", host.Column("ANN@X.Org", 2));
}

TEST_F(PasswordCache, OnlyTheHashOfALineIsChanged) {
  const auto before = host.lines;
  passwords_.CachePasswords();
  for (std::size_t line = 0; line < before.size(); ++line) {
    for (std::size_t column = 0; column < 9; ++column) {
      if (column == 1) continue;
      EXPECT_EQ(before[line][column], host.lines[line][column]);
    }
  }
}

TEST_F(PasswordCache, AFailingToolEndsTheWalkAndKeepsWhatWasPosted) {
  host.tool = [](const std::string& command, const std::string&) {
    return command.ends_with("cy@x.org") ? Outcome{"no", 1} : Outcome{"fresh"};
  };
  host.lines.push_back({"ann@x.org", "behind"});
  EXPECT_THROW(passwords_.CachePasswords(), email::Fail);
  EXPECT_EQ("fresh", host.lines[0][1]);
  EXPECT_EQ("old-c", host.lines[2][1]);
  EXPECT_EQ("behind", host.lines[3][1]);
}

TEST_F(PasswordCache, AnExceptionAtEachStepGivesTheTablesBack) {
  passwords_.CachePasswords();
  Calls steps = host.Calls();
  std::erase_if(steps, [](const std::string& c) { return c[0] == '~' || c.starts_with("give"); });
  for (std::size_t step = 0; step < steps.size(); ++step) {
    SCOPED_TRACE(steps[step]);
    host.lines[0][1] = "old-a";
    host.lines[2][1] = "old-c";
    host.ForgetCalls();
    host.fail_at = static_cast<int>(step);
    EXPECT_THROW(passwords_.CachePasswords(), mgr_err::Error);
    const auto posted = std::count(steps.begin(), steps.begin() + static_cast<long>(step),
                                   std::string("Post line ''"));
    EXPECT_EQ(posted > 0 ? "hash-of-pa" : "old-a", host.lines[0][1]);
    EXPECT_EQ(posted > 1 ? "hash-of-pc" : "old-c", host.lines[2][1]);
    EXPECT_EQ(0, host.tables_out);
    EXPECT_EQ(0, host.cursors_out);
  }
}

}  // namespace
