#include <filesystem>

#include "tests/unit/brisq/commands_fixture.h"

namespace brisq {
namespace {

using nlohmann::json;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::vector<std::string> Texts(const json& data, const std::string& kind) {
  std::vector<std::string> texts;
  for (const json& record : data)
    if (record["kind"] == kind) texts.push_back(record["text"]);
  return texts;
}

// The hash of a line is masked, but a name, a home and what is behind are anybody's.
TEST_F(CommandsTest, APlanDoesNotSteerTheTerminal) {
  AddDomain();
  AddMailbox("bob@example.org");
  std::string passwd = dir_.Read("passwd");
  passwd.replace(passwd.find("2048M"), 5, "\x1b[2J");
  dir_.Write("passwd", passwd);
  const Ran plan = Run("plan");
  EXPECT_EQ(5, plan.status);
  EXPECT_THAT(plan.out, HasSubstr("\n-bob@example.org:"));
  EXPECT_THAT(plan.out, HasSubstr("\\x1b[2J"));
  EXPECT_EQ(std::string::npos, plan.out.find('\x1b')) << plan.out;
  const std::vector<std::string> raw = Texts(json::parse(Run("plan --json").out)["data"], "line");
  EXPECT_THAT(raw, testing::Contains(HasSubstr("\x1b[2J"))) << "for programs as it is";
}

TEST_F(CommandsTest, ASyncTellsAllInJsonAndIsAJob) {
  AddDomain();
  AddMailbox("bob@example.org");
  AddMailbox("carol@example.org");
  dir_.Write("passwd", "zed@example.net:{X}h:1:1::/z:::\n");
  const Ran plan = Run("plan --json");
  EXPECT_EQ(5, plan.status);
  const json planned = json::parse(plan.out)["data"];
  const json done = Data("sync --generate");
  for (const json& data : {planned, done}) {
    EXPECT_EQ(3u, Texts(data, "line").size()) << data;
    EXPECT_EQ("@@ line 2 @@", Texts(data, "line")[0]);
    EXPECT_EQ(std::vector<std::string>{"zed@example.net"}, Texts(data, "stranger"));
  }
  EXPECT_EQ(2u, Texts(planned, "without password").size());
  std::vector<std::string> passwords;
  for (const json& record : done)
    if (record["kind"] == "password") passwords.push_back(record["password"]);
  ASSERT_EQ(2u, passwords.size());
  for (const std::string& line : Texts(done, "line"))
    EXPECT_EQ(std::string::npos, line.find(passwords[0])) << line;

  const json job = Data("job list --last 1")[0];
  EXPECT_EQ("sync", job["command"]);
  EXPECT_EQ("bob@example.org, carol@example.org", job["objects"]);
  const std::string number = std::to_string(job["job"].get<int>());
  const Ran shown = Run("job show " + number + " --json");
  EXPECT_EQ("sync", json::parse(shown.out)["job"][0]["command"]);
  EXPECT_EQ("line bob@example.org", json::parse(shown.out)["data"][0]["object"]);
  EXPECT_EQ(std::string::npos, shown.out.find("{CRAM-MD5}")) << "hashes are masked";
  EXPECT_EQ(json::array({{{"job", job["job"]}, {"state", "undone"}}}), Data("job undo " + number));
  EXPECT_EQ("zed@example.net:{X}h:1:1::/z:::\n", dir_.Read("passwd"));
}

TEST_F(CommandsTest, ASyncThatLeavesMailboxesWithoutPasswordSaysHowToGoOn) {
  AddDomain();
  AddMailbox("al@example.org");
  AddMailbox("bo@example.org");
  dir_.Write("passwd", "");
  for (const char* name : {"lost lines", "nothing else to be done"}) {
    SCOPED_TRACE(name);
    const Ran ran = Run("sync");
    EXPECT_EQ(0, ran.status);
    EXPECT_THAT(ran.err, HasSubstr("no password is known for bo@example.org\n"));
    EXPECT_THAT(ran.err, EndsWith("mailboxes left without a password: 2; "
                                  "\"brisq sync --generate\" gives each a new one\n"));
    EXPECT_THAT(ran.err, Not(HasSubstr("nothing to do")));
  }
  EXPECT_THAT(Run("sync --generate").err, Not(HasSubstr("without a password")));
  EXPECT_EQ("nothing to do\n", Run("sync").err);
}

// A link in the way stands for all that keeps from looking, a broken disk too.
TEST_F(CommandsTest, ASyncThatLeavesAMaildirAloneIsNoSuccess) {
  AddDomain();
  AddMailbox("al@example.org");
  AddMailbox("bo@example.org");
  const std::string home = dir_ / "home/mail/example.org/al";
  std::filesystem::remove_all(home);
  std::filesystem::create_directory_symlink("/tmp", home);
  const std::string left = "left alone: " + home + ": not safe: is a symbolic link\n";
  for (const char* words : {"plan", "sync", "sync --dry-run"}) {
    SCOPED_TRACE(words);
    for (const bool lost : {false, true}) {
      SCOPED_TRACE(lost ? "bo's line is lost" : "nothing else is to be done");
      if (lost) dir_.Write("passwd", "");
      const Ran ran = Run(words);
      EXPECT_EQ(5, ran.status);
      EXPECT_THAT(ran.err, HasSubstr(left));
      EXPECT_THAT(ran.err, HasSubstr("; left alone: 1; end what is named above, then brisq " +
                                     std::string(words).substr(0, 4) + " again\n"));
      EXPECT_THAT(ran.err, Not(HasSubstr("nothing to do")));
    }
  }
  dir_.Write("passwd", "");
  EXPECT_EQ(5, Run("sync --json").status);
  EXPECT_THAT(dir_.Read("passwd"), StartsWith("bo@example.org:")) << "others are served";
  std::filesystem::remove(home);
  EXPECT_EQ(0, Run("sync").status);
  EXPECT_EQ(0, Run("plan").status);
}

}  // namespace
}  // namespace brisq
