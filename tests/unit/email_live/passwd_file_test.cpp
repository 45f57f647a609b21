#include "email/passwd_file.h"

#include <thread>

#include "tests/unit/email_live/live_fixture.h"

using live::DovPasswd;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string kAnn =
    "ann@x.org:{CRAM-MD5}ab:1001:1002::/home/ann:::maildir:~/.maildir "
    "userdb_quota_rule=*:bytes=500M\n";
const std::string kBob =
    "bob@x.org:{SHA512-CRYPT}$6$a$b:1001:1002::/home/bob:::maildir:~/.maildir "
    "userdb_quota_rule=*:bytes=0M\n";

class PasswdFile : public live::LiveTest {
 protected:
  static std::vector<std::string> Values(DovPasswd& line) {
    std::vector<std::string> values;
    for (const dd::Field* field : line.Fields()) values.push_back(field->Str());
    return values;
  }

  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    const auto line = Open();
    for (line->First(); !line->Eof(); line->Next()) names.push_back(line->name.Str());
    return names;
  }

  void Add(const std::string& name) const {
    const auto line = Open();
    line->New();
    line->name.Set(name);
    line->Post("");
  }

  void SetHash(const std::string& name, const std::string& hash) const {
    const auto line = Open();
    line->Assert(name);
    line->passwd.Set(hash);
    line->Post("");
  }
};

TEST_F(PasswdFile, ALineReadsAsNineFieldsWithTheRestInTheLast) {
  WriteFile(kBob);
  const auto line = Open();
  line->First();
  EXPECT_THAT(Values(*line),
              ElementsAre("bob@x.org", "{SHA512-CRYPT}$6$a$b", "1001", "1002", "", "/home/bob", "",
                          "", "maildir:~/.maildir userdb_quota_rule=*:bytes=0M"));
}

TEST_F(PasswdFile, ALineWrittenBackWithTheSameValuesIsUnchanged) {
  WriteFile(kBob);
  const auto line = Open();
  line->First();
  for (dd::Field* field : line->Fields()) field->Set(field->Str());
  line->Post("");
  EXPECT_EQ(kBob, File());
}

TEST_F(PasswdFile, ANewLineBeforeAPasswordIsSetHasFourEmptyColumns) {
  const auto line = Open();
  line->New();
  line->name.Set("cy@x.org");
  line->uid.Set(" 1001 ");
  line->gid.Set("1002\n");
  line->home.Set("/home/cy");
  line->maildir.Set("maildir:~/.maildir userdb_quota_rule=*:bytes=0M");
  EXPECT_EQ(0, reload_.requests);
  line->Post("");
  EXPECT_EQ("cy@x.org::1001:1002::/home/cy:::maildir:~/.maildir userdb_quota_rule=*:bytes=0M\n",
            File());
  EXPECT_EQ(1, reload_.requests);
}

TEST_F(PasswdFile, AWrongUidOrGidIsRefusedByNameAndTheFileStays) {
  WriteFile(kAnn);
  for (const char* value : {"10a0", "", " ", "-1", "1 2"}) {
    const auto line = Open();
    line->Assert("ann@x.org");
    EXPECT_THAT(live::ErrorOf([&] { line->uid.Set(value); }), testing::StartsWith("value: uid"));
    EXPECT_THAT(live::ErrorOf([&] { line->gid.Set(value); }), testing::StartsWith("value: gid"));
    line->Post("");
    EXPECT_EQ(kAnn, File());
  }
}

TEST_F(PasswdFile, ChangingOneLineLeavesEveryOtherByteAsItWas) {
  const struct {
    const char* name;
    std::string before, behind;
  } cases[] = {
      {"mailboxes", kBob, "cy@x.org:h:1:2::/c:::m\n"},
      {"comments and blank lines", "# comment\n\n   \n#ann@x.org:x:1:2::/a:::m\n", "\n#end\n"},
      {"lines that begin with a colon", ":no:name:::::::\n", ":\n"},
      {"short lines", "old:x:1:2::/h::\nx\n", "ann@y.org:x\n"},
      {"line ends CR LF", "bob@x.org:h:1:2::/b:::m\r\n#c\r\n", "cy@x.org:h:1:2::/c:::m\r\n"},
      {"no end behind the last line", "", "cy@x.org:h:1:2::/c:::m"},
      {"bytes that are no text", "\xff\xfe\x01:a\n", "\x80\n"},
      {"a later line of the same name", "", "ann@x.org:second:1:2::/c:::m\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    WriteFile(c.before + kAnn + c.behind);
    SetHash("ann@x.org", "NEW");
    std::string changed = kAnn;
    changed.replace(changed.find("{CRAM-MD5}ab"), 12, "NEW");
    EXPECT_EQ(c.before + changed + c.behind, File());
  }
}

TEST_F(PasswdFile, LinesThatAreNoMailboxesAreNeverOffered) {
  WriteFile("# ann@x.org:h:1:2::/a:::m\n\n \t\n:h:1:2::/a:::m\nold@x.org:h:1:2::/o::\n" + kAnn +
            "half@x.org");
  EXPECT_THAT(Names(), ElementsAre("ann@x.org"));
  EXPECT_FALSE(Open()->Find("old@x.org"));
  EXPECT_FALSE(Open()->Find("half@x.org"));
  EXPECT_FALSE(Open()->Find(""));
}

TEST_F(PasswdFile, ALineEndingInCrLfKeepsItWhenItIsChanged) {
  WriteFile("ann@x.org:old:1:2::/a:::m\r\n");
  SetHash("ann@x.org", "new");
  EXPECT_EQ("ann@x.org:new:1:2::/a:::m\r\n", File());
}

TEST_F(PasswdFile, OfTwoLinesWithOneNameTheFirstIsFound) {
  WriteFile("ann@x.org:one:1:2::/a:::m\nann@x.org:two:1:2::/a:::m\n");
  SetHash("ann@x.org", "new");
  EXPECT_EQ("ann@x.org:new:1:2::/a:::m\nann@x.org:two:1:2::/a:::m\n", File());
}

TEST_F(PasswdFile, ANewLineForATakenNameIsRefused) {
  WriteFile(kAnn);
  EXPECT_THAT(live::ErrorOf([&] { Add("ann@x.org"); }), testing::StartsWith("exists: "));
  EXPECT_EQ(kAnn, File());
  EXPECT_EQ(0, reload_.requests);
}

TEST_F(PasswdFile, AMissingLineIsMissedByName) {
  WriteFile(kAnn);
  EXPECT_EQ("missed: name: no@x.org", live::ErrorOf([&] { SetHash("no@x.org", "h"); }));
  EXPECT_EQ(kAnn, File());
}

TEST_F(PasswdFile, RemovingALineTakesThatLineOnly) {
  WriteFile("#\n" + kAnn + kBob);
  const auto line = Open();
  ASSERT_TRUE(line->Find("ann@x.org"));
  line->_Delete(true);
  EXPECT_EQ("#\n" + kBob, File());
  EXPECT_EQ(1, reload_.requests);
}

// Whatever a crash of another program has left, a mailbox is added behind it.
TEST_F(PasswdFile, EveryPrefixOfAFileIsKeptWhenALineIsAdded) {
  const std::string whole = "# users\n" + kAnn + "\nold:x\r\n" + kBob;
  for (std::size_t cut = 0; cut <= whole.size(); ++cut) {
    SCOPED_TRACE("cut after byte " + std::to_string(cut));
    std::string expected = whole.substr(0, cut);
    WriteFile(expected);
    Add("new@x.org");
    // The line that was cut off gets its end, or the second half of it.
    if (cut > 0 && expected.back() != '\n') expected += '\n';
    EXPECT_EQ(expected + "new@x.org::::::::\n", File());
  }
}

TEST_F(PasswdFile, AMissingFileHasNoLinesAndIsMadeByTheFirstSave) {
  EXPECT_THAT(Names(), IsEmpty());
  EXPECT_NE(0, ::access(file_.c_str(), F_OK)) << "opening makes nothing";
  Add("ann@x.org");
  EXPECT_EQ("ann@x.org::::::::\n", File());
}

TEST_F(PasswdFile, EverySaveAsksForAReloadAndLogsIt) {
  Add("ann@x.org");
  SetHash("ann@x.org", "h");
  EXPECT_EQ(2, reload_.requests);
  EXPECT_THAT(Messages(), ElementsAre("debug email: email_dovecot:64 reload dovecot config",
                                      "debug email: email_dovecot:64 reload dovecot config"));
}

TEST_F(PasswdFile, ThreadsThatOpenItAtOnceAllGetCursorsAndLoseNothing) {
  constexpr int kThreads = 8;
  constexpr int kLines = 10;
  std::atomic<int> arrived = 0;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      ++arrived;
      while (arrived < kThreads) std::this_thread::yield();
      for (int line = 0; line < kLines; ++line) {
        Add("t" + std::to_string(thread) + "." + std::to_string(line) + "@x.org");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(std::size_t{kThreads * kLines}, Names().size());
  EXPECT_GT(reload_.requests, 0);
}

}  // namespace
