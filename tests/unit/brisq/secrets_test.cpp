// A password that is known by sight, through every command of the built program: where it is seen.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <set>

#include "brisq/command.h"
#include "tests/support/sanitized.h"
#include "tests/support/stub_program.h"
#include "tests/unit/brisq/secrets_fixture.h"

namespace brisq {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::Not;

struct Step {
  const char* words;  // FILES stands for the certificate's options
  int status = 0;
  bool given = false;   // the password on standard input
  bool spoken = false;  // doveadm prints what it was given, and fails
};

// At least one row for each command.
const Step kSteps[] = {
    {"owner add other --uid 6000 --gid 6000 --home HOME"},
    {"owner list"},
    {"domain add example.net --owner demo"},
    {"domain list --json"},
    {"domain show example.org"},
    {"mailbox add one@example.org --password-stdin", 0, true},
    {"mailbox add one@example.org --password-stdin", 6, true},
    {"mailbox passwd one@example.org --password-stdin", 0, true},
    {"job list --json"},
    {"job show 6"},
    {"job undo 6 --dry-run"},
    {"job undo 6"},
    {"mailbox add two@example.org --password-stdin --quota 3 --json", 0, true},
    {"mailbox add three@example.org --password-stdin --dry-run", 0, true},
    {"mailbox add --password-stdin -- -x@example.org", 10, true},
    {"mailbox add three@example.org --password-stdin", 9, true, true},
    {"mailbox passwd one@example.org --password-stdin", 0, true},
    {"mailbox passwd one@example.org --password-stdin --dry-run --json", 0, true},
    {"mailbox passwd none@example.org --password-stdin", 4, true},
    {"mailbox passwd one@example.org --password-stdin", 9, true, true},
    {"mailbox passwd one@example.org --password-stdin --generate", 2, true},
    {"mailbox list --json"},
    {"mailbox show one@example.org"},
    {"mailbox set one@example.org --quota 5"},
    {"mailbox set one@example.org --active off"},
    {"mailbox set one@example.org --active on"},
    {"domain set example.org --active off"},
    {"domain set example.org --active on"},
    {"mailbox delete two@example.org --yes"},
    {"mailbox list --archived --json"},
    {"mailbox restore two@example.org"},
    {"tls set example.org FILES"},
    {"tls list --json"},
    {"tls check"},
    {"tls unset example.org"},
    {"tls prune"},
    {"refresh"},
    {"usage"},
    {"owner show demo"},
    {"passwd-file edit"},
    {"passwd-file check"},
    {"check"},
    {"plan"},
    {"sync"},
    {"reload now"},
    {"reload status"},
    {"action list"},
    {"action run dovecot.certs.check"},
    {"serve"},
    {"domain delete example.net --yes"},
};

std::string Replaced(std::string text, const std::string& what, const std::string& by) {
  const std::size_t at = text.find(what);
  return at == std::string::npos ? text : text.replace(at, what.size(), by);
}

class EveryCommand : public SecretsTest {
 protected:
  void SetUp() override {
    SecretsTest::SetUp();
    files_ = MakeCertificate("example.org");
    setenv("EDITOR", "sed -i '$a# by hand'", 1);
  }
  void TearDown() override {
    unsetenv("EDITOR");
    SecretsTest::TearDown();
  }

  void Take(const Step& step, bool keeps_passwords) {
    SCOPED_TRACE(step.words);
    if (step.words == std::string("serve")) return RunServer(keeps_passwords);
    if (step.spoken) beside_.Write("talks", "");
    const std::string words =
        Replaced(Replaced(step.words, "FILES", files_), "HOME", dir_ / "other");
    const Ran ran = RunWatched(words, step.given ? canary_ + "\n" : "");
    EXPECT_EQ(step.status, ran.status) << ran.out << ran.err;
    fs::remove(beside_ / "talks");
  }

  void TakeAll(bool keeps_passwords) {
    if (support::kSanitized) GTEST_SKIP() << "two minutes under strace, and memory is kept";
    for (const Step& step : kSteps) Take(step, keeps_passwords);
    Look(Kept("seen"), "an argument list or environment");
    LookInTemporaryFiles();
    EXPECT_THAT(Kept("seen"), HasSubstr("--password-stdin"));
    EXPECT_EQ("", Kept("files")) << "while a command was at work";
    EXPECT_THAT(KeptLines("cores"), Each("0"));
    EXPECT_THAT(KeptLines("hashed"), AllOf(Contains("1").Times(testing::Ge(6)), Each("1")));
    EXPECT_GE(passed_on_, static_cast<int>(KeptLines("hashed").size()));
    EXPECT_THAT(KeptLines("memory"), Each("0"));
    EXPECT_GE(KeptLines("memory").size(), 12U) << "the memory was looked at too seldom";
    EXPECT_EQ(0, hits_);
    std::printf(
        "commands: %zu; programs started: %d, calls that wrote: %d, looks at texts and files: %d, "
        "looks into memory: %zu, hits: %d; passed on to be hashed: %zu\n",
        std::size(kSteps), started_, written_, looks_, KeptLines("memory").size(), hits_,
        KeptLines("hashed").size());
  }

  std::string files_;
};

TEST_F(EveryCommand, ShowsNoPasswordWhenTheServerKeepsItsHash) { TakeAll(false); }

TEST_F(EveryCommand, ShowsNoPasswordWhenThePanelKeepsItSealed) {
  KeepPasswordsSealed();
  TakeAll(true);
}

TEST(EveryCommandTable, HasARowForEachCommand) {
  std::set<std::string> rows;
  for (const Step& step : kSteps) rows.insert(step.words);
  for (const Command& command : Commands()) {
    const std::string name = command.noun + (command.verb.empty() ? "" : " " + command.verb);
    const auto row = std::find_if(rows.begin(), rows.end(), [&](const std::string& words) {
      return words == name || words.starts_with(name + " ");
    });
    EXPECT_NE(rows.end(), row) << name;
  }
}

TEST_F(SecretsTest, AGeneratedPasswordIsPrintedAndNowhereElse) {
  const std::string made = Expect(0, "mailbox add one@example.org --generate").out;
  ASSERT_EQ(25U, made.size());
  const std::string password = made.substr(0, 24);
  for (const auto& entry : fs::recursive_directory_iterator(dir_.path())) {
    if (entry.is_regular_file()) {
      EXPECT_THAT(support::ReadFile(entry.path()), Not(HasSubstr(password))) << entry.path();
    }
  }
  EXPECT_THAT(Kept("seen"), Not(HasSubstr(password)));
  int shown = 0;
  for (const std::string& call : KeptLines("calls")) {
    const bool to_tool = call.find("<pipe:") != std::string::npos;
    if (call.find(password) == std::string::npos || to_tool) continue;
    ++shown;
    EXPECT_THAT(call, HasSubstr("write(1<" + (beside_ / "out") + ">"));
  }
  EXPECT_EQ(1, shown);
}

constexpr std::size_t kLongest = 511;  // bytes of a password

// What is in memory after passwords were set, in both ways of keeping them.
class SecretsInMemory : public SecretsTest {
 protected:
  void SetUp() override {
    if (support::kSanitized) GTEST_SKIP() << "a sanitizer keeps what is freed";
    SecretsTest::SetUp();
  }
  // So long that what uses its memory next does not happen to hide all of it.
  std::string LongPassword() const {
    std::string password;
    while (password.size() + canary_.size() <= kLongest) password += canary_;
    return password;
  }
  int CountAfterSetting() { return CountAfterSetting(canary_); }
  int CountAfterSetting(const std::string& password) {
    fs::remove(beside_ / "memory");
    const std::string words = " one@example.org --password-stdin";
    Expect(0, "mailbox add" + words, password + "\n");
    Expect(0, "mailbox passwd" + words, password + "\n");
    KeepPasswordsSealed();
    Expect(0, "mailbox passwd" + words, password + "\n");
    const std::vector<std::string> counts = KeptLines("memory");
    EXPECT_EQ(3U, counts.size());
    int found = 0;
    for (const std::string& count : counts) found += std::stoi(count);
    return found;
  }
};

TEST_F(SecretsInMemory, AreNotFoundInTheProgram) { EXPECT_EQ(0, CountAfterSetting()); }

TEST_F(SecretsInMemory, AreNotFoundWhenTheyAreShort) {
  UseShortPassword();
  EXPECT_EQ(0, CountAfterSetting());
}

TEST_F(SecretsInMemory, AreNotFoundWhenTheyAreLong) {
  EXPECT_EQ(0, CountAfterSetting(LongPassword()));
}

TEST_F(SecretsInMemory, AreFoundWhenFreedMemoryIsNotOverwritten) {
  RunUnwiped();
  const int found = CountAfterSetting(LongPassword());
  EXPECT_GT(found, 0);
  std::printf("found without wiping: %d\n", found);
}

bool LeavesCore(const std::string& folder) {
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.path().filename().string().starts_with("core")) return true;
  }
  return false;
}

// Both the program and the tool die with the password in memory, where a core would be written.
TEST_F(SecretsTest, NeitherTheProgramNorTheToolLeavesACore) {
  Expect(0, "mailbox add one@example.org --generate");
  beside_.Write("aborts", "");
  const std::string folder = beside_.MakeFolder("dumps");
  in_front_ = "cd '" + folder + "' && ulimit -c unlimited && ";
  EXPECT_NE(0, Run("mailbox passwd one@example.org --password-stdin", canary_ + "\n").status);
  EXPECT_THAT(KeptLines("hashed"), Contains("1"));
  EXPECT_THAT(KeptLines("cores"), Each("0"));
  EXPECT_FALSE(LeavesCore(folder));
  if (support::ReadFile("/proc/sys/kernel/core_pattern") != "core\n") return;
  // A program that takes no care does leave one.
  EXPECT_NE(0, std::system((in_front_ + "sh -c 'kill -ABRT $$'").c_str()));
  EXPECT_TRUE(LeavesCore(folder));
}

// The lookout would see it: a careless program that logs, stores and passes on what it is given.
TEST_F(SecretsTest, TheLookoutSeesWhatACarelessProgramShows) {
  const std::string careless = support::WriteStub(
      beside_ / "careless", "read -r word\necho \"password $word\" >>'" + (dir_ / "careless.log") +
                                "'\nSECRET=\"$word\" '" + (beside_ / "doveadm") +
                                "' pw -p \"$word\" </dev/null\necho \"set to $word\"\n");
  beside_.Write("in", canary_ + "\n");
  const std::string line = in_front_ + "'" + careless + "' <'" + (beside_ / "in") + "' >'" +
                           (beside_ / "out") + "' 2>&1";
  ASSERT_EQ(0, std::system(line.c_str()));
  EXPECT_THAT(Kept("seen"), HasSubstr("SECRET=" + canary_));
  EXPECT_THAT(Kept("seen"), HasSubstr(canary_ + std::string(1, '\0')));
  EXPECT_THAT(Kept("files"), HasSubstr("careless.log"));
  EXPECT_THAT(beside_.Read("out"), HasSubstr(canary_));
  EXPECT_THAT(Kept("calls"), HasSubstr("careless.log>, \"password " + canary_));
  EXPECT_THAT(Kept("calls"), HasSubstr("\"pw\", \"-p\", \"" + canary_ + "\""));
}

}  // namespace
}  // namespace brisq
