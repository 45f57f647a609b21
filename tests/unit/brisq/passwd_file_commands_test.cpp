#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "tests/unit/brisq/program_fixture.h"

namespace brisq {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class PasswdFileCommands : public ProgramTest {
 protected:
  void SetUp() override {
    ProgramTest::SetUp();
    // As on a server, Dovecot's user gets to the file.
    ASSERT_EQ(0, ::chmod(dir_.path().c_str(), 0711));
    AddDomain();
    AddMailbox("ann@example.org");
    AddMailbox("ben@example.org");
  }
  std::string Users() const { return dir_.Read("passwd"); }
};

TEST_F(PasswdFileCommands, AFileThatIsInOrderHasNoFindings) {
  const Ran ran = Run("passwd-file check");
  EXPECT_EQ(0, ran.status) << ran.out;
  EXPECT_EQ("", ran.out + ran.err);
}

TEST_F(PasswdFileCommands, FindingsAreLinesAndGiveExitCodeFive) {
  const std::string file = dir_ / "passwd";
  dir_.Write("passwd", Users() + "ann@example.org:{X}h\nodd@example.org:{X}h:0:1::/h:::m\n");
  ASSERT_EQ(0, ::chmod(file.c_str(), 0646));
  const Ran ran = Run("passwd-file check");
  EXPECT_EQ(5, ran.status);
  EXPECT_EQ("", ran.err);
  for (const std::string& line :
       {"PASSWD-WRITABLE error " + file + ": everybody may change it (fix: chmod 0640 " + file +
            ")",
        "PASSWD-DUPLICATE error " + file + ", line 3: ann@example.org appears in lines 1 and 3",
        "PASSWD-SHORT error " + file + ", line 3: ann@example.org has 2 of 9 columns",
        "PASSWD-ROOT error " + file + ", line 4: odd@example.org has the uid 0",
        "PASSWD-STRANGER warning " + file + ", line 4: odd@example.org is no mailbox"}) {
    EXPECT_THAT("\n" + ran.out, HasSubstr("\n" + line));
  }
  EXPECT_EQ(5, std::count(ran.out.begin(), ran.out.end(), '\n')) << ran.out;
}

TEST_F(PasswdFileCommands, FindingsAreObjectsInJson) {
  dir_.Write("passwd", "");
  const Ran ran = Run("passwd-file check --json");
  EXPECT_EQ(5, ran.status);
  const auto data = nlohmann::json::parse(ran.out)["data"];
  ASSERT_EQ(2U, data.size());
  EXPECT_EQ("PASSWD-NO-LINE", data[0]["code"]);
  EXPECT_EQ("ann@example.org", data[0]["object"]);
}

TEST_F(PasswdFileCommands, AFifoInThePlaceOfTheFileHoldsNobodyUp) {
  ASSERT_EQ(0, ::unlink((dir_ / "passwd").c_str()));
  ASSERT_EQ(0, ::mkfifo((dir_ / "passwd").c_str(), 0600));
  const Ran ran = Run("passwd-file check");
  EXPECT_EQ(5, ran.status);
  EXPECT_THAT(ran.out, StartsWith("PASSWD-KIND error "));
}

}  // namespace
}  // namespace brisq
