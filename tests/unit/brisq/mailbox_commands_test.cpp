#include "tests/unit/brisq/commands_fixture.h"

namespace brisq {
namespace {

using testing::HasSubstr;

TEST_F(CommandsTest, NoLimitIsWrittenAsNoneOrZero) {
  AddDomain();
  EXPECT_EQ(0, Run("mailbox add al@example.org --generate --quota none").status);
  EXPECT_EQ(0, Data("mailbox show al@example.org")[0]["quota_mb"]);
  for (const char* none : {"none", "0"}) {
    SCOPED_TRACE(none);
    EXPECT_EQ(0, Run("mailbox set al@example.org --quota 5").status);
    EXPECT_EQ(0, Run("mailbox set al@example.org --quota " + std::string(none)).status);
    EXPECT_EQ(0, Data("mailbox show al@example.org")[0]["quota_mb"]);
    EXPECT_THAT(dir_.Read("passwd"), HasSubstr("bytes=0M"));
  }
  EXPECT_EQ(0, Run("mailbox set al@example.org --quota 5").status);
  for (const char* words : {"set al@example.org", "add bo@example.org --generate"}) {
    const Ran ran = Run("mailbox " + std::string(words) + " --quota ''");
    EXPECT_EQ(10, ran.status);
    EXPECT_EQ("brisq: invalid-input: quota: must not be empty\n", ran.err);
  }
  EXPECT_EQ(5, Data("mailbox list")[0]["quota_mb"]);
  EXPECT_EQ(1u, Data("mailbox list").size());
}

TEST_F(CommandsTest, ADeletedMailboxComesBackWithItsPassword) {
  AddDomain();
  AddMailbox("bob@example.org");
  const std::string before = dir_.Read("passwd");
  EXPECT_EQ(2, Run("mailbox delete bob@example.org").status) << "deleted without a question";
  EXPECT_EQ(before, dir_.Read("passwd"));
  EXPECT_THAT(Run("mailbox delete bob@example.org --yes").err, HasSubstr("its mail stays in"));
  EXPECT_EQ("", dir_.Read("passwd"));
  EXPECT_EQ("deleted", Data("mailbox list --archived")[0]["reason"]);
  EXPECT_EQ(0, Run("mailbox restore bob@example.org").status);
  EXPECT_EQ(before, dir_.Read("passwd"));
}

TEST_F(CommandsTest, ANewMailboxThatFindsMailOfAnEarlierOneSaysSo) {
  AddDomain();
  AddMailbox("al@example.org");
  const std::string maildir = dir_ / "home/mail/example.org/al/.maildir";
  for (const bool has_mail : {false, true}) {
    SCOPED_TRACE(has_mail);
    ASSERT_EQ(0, Run("mailbox delete al@example.org --yes").status);
    if (has_mail) dir_.Write("home/mail/example.org/al/.maildir/new/1.x", "mail");
    const Ran ran = Run("mailbox add al@example.org --password-stdin", "secret\n");
    EXPECT_EQ(0, ran.status) << ran.err;
    EXPECT_EQ(has_mail, ran.err.find(maildir + " was there already and holds mail, which mailbox "
                                               "al@example.org takes over\n") != std::string::npos)
        << ran.err;
  }
}

TEST_F(CommandsTest, SeveralMailboxesComeBackByOneCommand) {
  AddDomain();
  AddMailbox("al@example.org");
  AddMailbox("bo@example.org");
  EXPECT_EQ(0, Run("mailbox delete al@example.org bo@example.org --yes").status);
  const Ran none = Run("mailbox restore bo@example.org cy@example.org");
  EXPECT_EQ(4, none.status);
  EXPECT_EQ("brisq: not-found: archived mailbox: cy@example.org\n", none.err);
  EXPECT_EQ(2u, Data("mailbox list --archived").size());
  const Ran both = Run("mailbox restore bo@example.org al@example.org");
  EXPECT_EQ(0, both.status);
  EXPECT_EQ("mailbox bo@example.org restored\nmailbox al@example.org restored\n", both.err);
  EXPECT_EQ(2u, Data("mailbox list").size());
  EXPECT_EQ("bo@example.org, al@example.org", Data("job list --last 1")[0]["objects"]);
}

}  // namespace
}  // namespace brisq
