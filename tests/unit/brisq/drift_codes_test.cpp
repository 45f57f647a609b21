// Every code of docs/operate/checks.md: a drift is planted, found, mended or left, by the built
// program.

#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <regex>
#include <set>

#include "tests/support/places.h"
#include "tests/support/sanitized.h"
#include "tests/unit/brisq/instance_fixture.h"

namespace brisq {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

enum class Then { kMended, kLeft };

struct Plant {
  const char* name;
  const char* code;
  const char* script;  // for the shell, in the instance's folder; SQL stands for its database
  Then then;
};

constexpr Then kMended = Then::kMended;
constexpr Then kLeft = Then::kLeft;

const Plant kPlants[] = {
    {"a file that is gone", "PASSWD-MISSING", "rm passwd", kLeft},
    {"a link to nothing", "PASSWD-DANGLING", "rm passwd; ln -s gone passwd", kLeft},
    {"a file that root alone reads", "PASSWD-UNREADABLE", "chgrp root passwd", kMended},
    {"a file that everybody writes", "PASSWD-WRITABLE", "chmod 666 passwd", kMended},
    {"a file that everybody reads", "PASSWD-READABLE", "chmod 644 passwd", kMended},
    {"a file of another user", "PASSWD-OWNER", "chown 5000 passwd", kMended},
    {"a line with few columns", "PASSWD-SHORT", "echo 'x@y.org:h' >>passwd", kLeft},
    {"a line twice", "PASSWD-DUPLICATE", "cat passwd passwd >p && cat p >passwd && rm p", kLeft},
    {"a line without a mailbox", "PASSWD-STRANGER", "echo 'x@y.org:{X}h:1:1::/h:::m' >>passwd",
     kLeft},
    {"a line that was lost", "PASSWD-NO-LINE", "sed -i /^al@/d passwd", kLeft},
    {"a line of one who is off", "PASSWD-INACTIVE",
     "SQL \"UPDATE mailboxes SET active = 'off' WHERE name = 'al'\"", kLeft},
    {"a line without a hash", "PASSWD-NO-HASH", "sed -i 's/{CRAM-MD5}hash//' passwd", kLeft},
    {"a scheme without a hash", "PASSWD-OPEN", "sed -i 's/}hash/}/' passwd", kLeft},
    {"the uid 0", "PASSWD-ROOT", "sed -i 's/:5000:5000:/:0:5000:/' passwd", kLeft},
    {"a uid in words", "PASSWD-ID", "sed -i 's/:5000:5000:/:al:5000:/' passwd", kLeft},
    {"a relative home", "PASSWD-HOME", "sed -i 's,::/,::,' passwd", kLeft},
    {"a word that opens", "PASSWD-NOPASSWORD", "sed -i 's/$/ nopassword/' passwd", kLeft},
    {"a variable", "PASSWD-PERCENT", "sed -i 's/$/ x=%u/' passwd", kLeft},
    {"a control character", "PASSWD-BYTES", "printf 'x@y.org:{X}h\\001:1:1::/h:::m\\n' >>passwd",
     kLeft},
    {"a name in capitals", "PASSWD-NAME", "echo 'X@y.org:{X}h:1:1::/h:::m' >>passwd", kLeft},
    {"another quota", "LINE-DIFFERS", "sed -i s/=2048M/=1M/ passwd", kLeft},
    {"another gid", "LINE-DIFFERS", "sed -i s/:5000::/:5001::/ passwd", kLeft},
    {"no owner's home", "OWNER-HOME", "mv home moved", kMended},
    {"an owner's home that is a file", "OWNER-HOME", "mv home moved; touch home", kLeft},
    {"an owner's home of another", "OWNER-ACCESS", "chown 6000 home", kLeft},
    {"an owner's home that is open", "OWNER-ACCESS", "chmod o+w home", kMended},
    {"two in one home", "HOME-SHARED",
     "SQL \"UPDATE mailboxes SET home = (SELECT home FROM mailboxes WHERE name = 'al')\"", kLeft},
    {"a home in a home", "HOME-SHARED",
     "SQL \"UPDATE mailboxes SET home = (SELECT home FROM mailboxes WHERE name = 'al') || '/x'"
     " WHERE name = 'bo'\"",
     kLeft},
    {"a home elsewhere", "HOME-OUTSIDE",
     "SQL \"UPDATE mailboxes SET home = '/elsewhere' WHERE name = 'al'\"", kLeft},
    {"no Maildir", "MAILDIR-MISSING", "rm -r home/mail/example.org/al/.maildir", kMended},
    {"no folder of it", "MAILDIR-MISSING", "rmdir home/mail/example.org/al/.maildir/cur", kMended},
    {"a link on the way", "MAILDIR-LINK",
     "cd home/mail/example.org && mv al x && ln -s x al && chown -h 5000 al", kLeft},
    {"a link in it", "MAILDIR-LINK",
     "cd home/mail/example.org/al/.maildir && mv new x && ln -s x new", kLeft},
    {"a foreign folder", "MAILDIR-OWNER", "chown 6000 home/mail/example.org/al/.maildir/cur",
     kLeft},
    {"a file in the way", "MAILDIR-KIND",
     "cd home/mail/example.org/al/.maildir && rmdir tmp && touch tmp", kLeft},
    {"an open Maildir", "MAILDIR-MODE", "chmod 755 home/mail/example.org/al/.maildir", kMended},
    {"a shut Maildir", "MAILDIR-MODE", "chmod 0 home/mail/example.org/al/.maildir/new", kMended},
    {"no certificate file", "TLS-FILE",
     "SQL \"UPDATE domains SET cert = '/nowhere' WHERE cert != ''\"", kLeft},
    {"no link", "TLS-LINK", "rm ssl/example.org.crt", kMended},
    {"a link elsewhere", "TLS-LINK", "ln -sfn /etc/hostname ssl/example.org.key", kMended},
    {"no snippet", "TLS-SNIPPET", "rm certs/example.org.conf", kMended},
    {"a snippet by hand", "TLS-EDITED", "echo '# mine' >>certs/example.org.conf", kLeft},
    {"a snippet that dangles", "TLS-DANGLING",
     "printf 'local_name x {\\n\\tssl_cert = </nowhere\\n}\\n' >certs/x.conf", kMended},
    {"a foreign snippet", "TLS-STRANGER",
     "printf 'local_name x {\\n\\tssl_cert = </dev/null\\n}\\n' >certs/x.conf", kLeft},
    {"an open snippet", "TLS-ACCESS", "chmod 666 certs/example.org.conf", kMended},
    {"a link of no domain", "TLS-STRANGER", "ln -s /etc/hostname ssl/x.crt", kLeft},
    {"a folder of snippets that everybody writes", "TLS-ACCESS", "chmod 777 certs", kLeft},
    {"a folder of links that everybody writes", "TLS-ACCESS", "chmod 777 ssl", kLeft},
    {"an open key", "STATE-ACCESS", "touch state/seal.key; chmod 644 state/seal.key", kMended},
    {"a lock of another", "STATE-ACCESS", "chown 5000 state/reload.lock", kMended},
    {"a password without its key", "KEY-LOST",
     "SQL \"UPDATE mailboxes SET password = 's1:abc' WHERE name = 'al'\"", kLeft},
    {"jobs and hashes without their key", "KEY-LOST", "rm state/seal.key", kLeft},
    {"jobs with another key", "KEY-LOST", "head -c 32 /dev/urandom >state/seal.key", kLeft},
    {"a damaged database", "DATABASE-DAMAGED",
     // An index that does not have what its table has.
     "sqlite3 state/panel.db '.dbconfig defensive off' \"PRAGMA writable_schema = ON; UPDATE"
     " sqlite_master SET sql = 'CREATE INDEX mailboxes_of_owner ON mailboxes (name)'"
     " WHERE name = 'mailboxes_of_owner'\"",
     kLeft},
    {"an open log", "LOG-ACCESS", "touch log/x.log.1; chmod 644 log/x.log.1", kMended},
    {"an open folder of logs", "LOG-ACCESS", "chmod 777 log", kMended},
    {"a request that can't be taken back", "JOURNAL-OPEN",
     "mkdir -p -m 700 state/journal; cp ENTRY state/journal/0123456789abcdef", kLeft},
    {"a killed save", "LEFTOVER-SAVE", "cp passwd .passwd.brisq-new", kMended},
    {"another killed save", "LEFTOVER-SAVE", "cp passwd .passwd.brisq-next", kMended},
    {"an edit set aside", "LEFTOVER-EDIT", "cp passwd passwd.edited-1", kLeft},
    {"a killed request", "LEFTOVER-JOB", "touch certs/.brisq-job-0123456789abcdef", kMended},
    {"a killed request's link", "LEFTOVER-JOB", "ln -s x ssl/.brisq-job-0123456789abcdef", kMended},
    {"what a killed request replaced", "LEFTOVER-JOB",
     "touch certs/.brisq-job-0123456789abcdef-old", kMended},
    {"what an unfinished request may put back", "LEFTOVER-JOB",
     "mkdir -p -m 700 state/journal; cp SWAP state/journal/0123456789abcdef; mkdir certs/d;"
     " ln -s x certs/.brisq-job-0123456789abcdef",
     kLeft},
    {"a link to itself", "CHECK-FAILED", "rm passwd; ln -s passwd passwd", kLeft},
    {"a folder that everybody writes, for the file", "PASSWD-DIRECTORY",
     "mkdir -m 777 open; mv passwd open; ln -s open/passwd passwd", kLeft},
};

// Where every command ends as the check does.
const std::set<std::string> kDatabaseFails = {"DATABASE-DAMAGED", "CHECK-FAILED", "JOURNAL-OPEN"};

// What chmod, chown and rm end.
const std::set<std::string> kEndedByTheSystem = {
    "PASSWD-UNREADABLE", "PASSWD-WRITABLE", "PASSWD-READABLE", "PASSWD-OWNER",
    "PASSWD-DIRECTORY",  "OWNER-ACCESS",    "MAILDIR-MODE",    "TLS-ACCESS",
    "TLS-STRANGER",      "STATE-ACCESS",    "LOG-ACCESS"};

// A record of the journal, with its checksum (FNV-1a).
std::string Record(const std::string& text) {
  std::uint64_t sum = 0xcbf29ce484222325u;
  for (const char c : text) sum = (sum ^ static_cast<unsigned char>(c)) * 0x100000001b3u;
  char digits[17];
  std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(sum));
  return std::string(digits) + " " + text + "\n";
}

class DriftCodesTest : public InstanceTest {
 protected:
  void SetUp() override {
    ProgramTest::SetUp();
    // As on a server, Dovecot's user gets to the file.
    ASSERT_EQ(0, ::chmod(dir_.path().c_str(), 0711));
    AddDomain();
    AddMailbox("al@example.org");
    AddMailbox("bo@example.org");
    Expect(0, "tls set example.org " + MakeCertificate("example.org"));
    // Of a process that died; the system never removes a directory by this name.
    beside_.Write("entry",
                  Record("request name=mailbox%20add started=2026-01-31T10:00:00Z who=root") +
                      Record("sysdir path=" + (dir_ / "certs/.") + " what=directory%20made"));
    // Nor is a link ever renamed to a directory.
    beside_.Write("swap", Record("request name=tls%20set started=2026-01-31T10:00:00Z who=root") +
                              Record("swap aside=" + (dir_ / "certs/.brisq-job-0123456789abcdef") +
                                     " new=other old=link%20x path=" + (dir_ / "certs/d")));
    Shell("cp -a . '" + Kept() + "'");
  }

  std::string Kept() const { return beside_ / "kept"; }

  void Shell(const std::string& script) {
    const std::string sql = "sql() { sqlite3 state/panel.db \"$1\"; }; ";
    const std::string whole = "cd '" + dir_.path() + "' && { " + sql + script + "; }";
    EXPECT_EQ(0, std::system(("bash -c '" + std::regex_replace(whole, std::regex("'"), "'\\''") +
                              "' >/dev/null")
                                 .c_str()))
        << script;
  }

  void Do(const Plant& plant) {
    const std::string script = std::regex_replace(plant.script, std::regex("SQL"), "sql");
    const std::string with_entry =
        std::regex_replace(script, std::regex("ENTRY"), beside_ / "entry");
    Shell(std::regex_replace(with_entry, std::regex("SWAP"), beside_ / "swap"));
  }

  void Reset() { Shell("find . -mindepth 1 -delete; cp -a '" + Kept() + "/.' ."); }

  // It says so and changes nothing.
  void ExpectADryRunToMend(const std::string& code) {
    const auto before = Everything();
    EXPECT_THAT(Expect(0, "check --fix --dry-run").err, HasSubstr("dry run: mended: " + code));
    EXPECT_EQ("", ChangedSince(before));
  }

  // What a check advises to do about its findings of a code.
  static std::vector<std::string> FixesOf(const std::string& code, const Ran& found) {
    std::vector<std::string> fixes;
    const std::regex line("(?:^|\\n)" + code + " [^\\n]*\\(fix: ([^\\n]*)\\)(?=\\n)");
    for (std::sregex_iterator at(found.out.begin(), found.out.end(), line), end; at != end; ++at) {
      fixes.push_back((*at)[1]);
    }
    EXPECT_FALSE(fixes.empty()) << found.out;
    return fixes;
  }

  // Gives what the program is advised to do to its own command line, and has it tried.
  void ExpectItsCommandsToWork(const std::string& fix) {
    // Without one the program asks, which a paste into a terminal lets it do.
    static const std::regex command("brisq ((?:[^,;:']|,(?! )|'[^']*')+)");
    for (std::sregex_iterator at(fix.begin(), fix.end(), command), end; at != end; ++at) {
      const std::string words = (*at)[1];
      EXPECT_EQ(std::string::npos, words.find(" to ")) << "prose behind a command: " << words;
      in_front_ = "VISUAL=true ";
      const Ran ran = Run(words == "check" ? words : words + " --dry-run");
      in_front_.clear();
      const bool looks = words.starts_with("check") || words == "sync";
      EXPECT_TRUE(ran.status == 0 || (looks && ran.status == 5))
          << words << ": " << ran.status << "\n"
          << ran.err;
    }
  }

  // A command of the system that a fix begins with, or holds behind another way.
  static std::string SystemCommandIn(const std::string& fix) {
    static const std::regex command(
        "(?:^|, or )((?:chmod|chown|chgrp|rm) (?:[^,;:']|,(?! )|'[^']*')+)");
    std::smatch match;
    return std::regex_search(fix, match, command) ? match[1].str() : std::string();
  }

  // Lines of a check that hold a code.
  static bool Tells(const Ran& ran, const std::string& code) {
    return ("\n" + ran.out).find("\n" + code + " ") != std::string::npos;
  }
};

TEST_F(DriftCodesTest, AnInstanceInOrderHasNoFindings) {
  const auto before = Everything();
  EXPECT_EQ("", Expect(0, "check").out);
  EXPECT_EQ("", Expect(0, "check --fix").out);
  EXPECT_EQ("", ChangedSince(before));
}

TEST_F(DriftCodesTest, EachDriftIsFoundAndMendedOrLeft) {
  for (const Plant& plant : kPlants) {
    SCOPED_TRACE(plant.name);
    Reset();
    Do(plant);
    const Ran found = Expect(5, "check");
    EXPECT_TRUE(Tells(found, plant.code)) << found.out;
    EXPECT_THAT(found.out, Not(HasSubstr("}hash"))) << "no finding shows a hash";
    for (const std::string& fix : FixesOf(plant.code, found)) {
      SCOPED_TRACE(fix);
      if (!support::kSanitized && kDatabaseFails.count(plant.code) == 0) {
        ExpectItsCommandsToWork(fix);
      }
    }
    const bool offered = found.out.find("check --fix") != std::string::npos;
    EXPECT_EQ(plant.then == kMended, offered) << found.out;
    if (plant.then == kLeft) {
      const auto before = Everything();
      EXPECT_TRUE(Tells(Expect(5, "check --fix"), plant.code));
      EXPECT_EQ("", ChangedSince(before)) << "nothing that needs a choice is changed";
      continue;
    }
    if (!support::kSanitized) ExpectADryRunToMend(plant.code);
    EXPECT_THAT(Expect(0, "check --fix").err, HasSubstr(std::string("mended: ") + plant.code));
    if (!support::kSanitized) {
      EXPECT_EQ("", Expect(0, "check").out);
    }
  }
}

// As pasted from the line that the check has printed.
TEST_F(DriftCodesTest, EachCommandOfTheSystemThatIsAdvisedEndsItsFinding) {
  if (support::kSanitized) GTEST_SKIP() << "nothing else is run than without";
  std::set<std::string> ended;
  for (const Plant& plant : kPlants) {
    const std::string code = plant.code;
    if (kEndedByTheSystem.count(code) == 0) continue;
    SCOPED_TRACE(plant.name);
    Reset();
    Do(plant);
    std::vector<std::string> commands;
    for (const std::string& fix : FixesOf(code, Expect(5, "check"))) {
      commands.push_back(SystemCommandIn(fix));
    }
    if (commands.front().empty()) continue;
    for (const std::string& command : commands) Shell(command);
    EXPECT_FALSE(Tells(Run("check"), code)) << commands.front();
    ended.insert(code);
  }
  EXPECT_EQ(kEndedByTheSystem, ended);
}

// Names come from the file: what is no mailbox's is in no command.
TEST_F(DriftCodesTest, NoCommandHoldsANameThatSomebodyHasMadeUp) {
  Shell("printf \"x;id@y.org::1:1::/h:::m\\nz@y.org\\n\" >>passwd");
  for (const char* code : {"PASSWD-NO-HASH", "PASSWD-SHORT", "PASSWD-STRANGER"}) {
    SCOPED_TRACE(code);
    for (const std::string& fix : FixesOf(code, Expect(5, "check"))) {
      EXPECT_THAT(fix, StartsWith("brisq passwd-file edit: "));
      EXPECT_THAT(fix, Not(HasSubstr("y.org")));
    }
  }
}

TEST_F(DriftCodesTest, OneAreaIsLookedAtAlone) {
  Shell("rm ssl/example.org.crt; chmod 777 log");
  EXPECT_THAT(Expect(5, "check --only tls").out, Not(HasSubstr("LOG-ACCESS")));
  EXPECT_THAT(Expect(5, "check --only state").out, Not(HasSubstr("TLS-LINK")));
  Expect(0, "check --only homes");
  EXPECT_THAT(Expect(10, "check --only nonsense").err, HasSubstr("must be one of state, passwd"));
}

TEST_F(DriftCodesTest, FindingsAreObjectsInJson) {
  Shell("chmod 644 passwd");
  EXPECT_THAT(Expect(5, "check --json").out,
              HasSubstr("\"code\":\"PASSWD-READABLE\",\"severity\":\"warning\""));
}

std::set<std::string> CodesIn(const std::string& text, const std::string& pattern) {
  std::set<std::string> codes;
  const std::regex code(pattern);
  for (std::sregex_iterator at(text.begin(), text.end(), code), end; at != end; ++at) {
    codes.insert((*at)[1]);
  }
  return codes;
}

// Codes whose drift can't be planted everywhere have their tests beside their code.
TEST(DriftCodesTableTest, EveryDocumentedCodeHasATestAndEveryTestedOneIsDocumented) {
  const std::string root = support::SourceFolder();
  const std::set<std::string> documented =
      CodesIn(support::ReadFile(root + "/docs/operate/checks.md"), "`([A-Z]+-[A-Z-]+)`");
  const std::string beside =
      support::ReadFile(root + "/tests/unit/panel/passwd_file_check_test.cpp") +
      support::ReadFile(root + "/tests/unit/panel/passwd_lines_test.cpp");
  std::set<std::string> tested = CodesIn(beside, "(PASSWD-[A-Z-]+)");
  for (const Plant& plant : kPlants) tested.insert(plant.code);
  EXPECT_EQ(documented, tested);
  EXPECT_GE(documented.size(), 40u);
}

// Those that the code can tell are the documented ones.
TEST(DriftCodesTableTest, EveryCodeInTheSourcesIsDocumented) {
  const std::string root = support::SourceFolder();
  std::string sources;
  for (const auto& entry : std::filesystem::directory_iterator(root + "/panel")) {
    if (entry.path().extension() == ".cpp") sources += support::ReadFile(entry.path());
  }
  const std::string families =
      "PASSWD|LINE|OWNER|HOME|MAILDIR|TLS|STATE|DATABASE|KEY|LOG|JOURNAL|LEFTOVER"
      "|CHECK";
  EXPECT_EQ(CodesIn(support::ReadFile(root + "/docs/operate/checks.md"), "`([A-Z]+-[A-Z-]+)`"),
            CodesIn(sources, "\"((?:" + families + ")-[A-Z-]+)\""));
}

}  // namespace
}  // namespace brisq
