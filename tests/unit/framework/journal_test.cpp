#include "framework/journal.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <memory>

#include "mgr_err.h"
#include "tests/support/sys_fault.h"
#include "tests/support/temp_dir.h"

namespace {

using journal::Entry;
using journal::Step;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kId = "0123456789abcdef";
const Step kHead{"request", {{"name", "mailbox add"}, {"who", "alice"}, {"started", "then"}}};

class JournalTest : public testing::Test {
 protected:
  JournalTest() { journal::SetFolder(folder_); }
  ~JournalTest() override { journal::SetFolder(""); }

  // What a process that dies leaves: an entry that nobody holds.
  static void Leave(const std::string& id, const std::vector<Step>& steps) {
    Entry(id, kHead).Write(steps, true);
  }
  std::size_t Files() const {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder_),
                                                  std::filesystem::directory_iterator()));
  }
  static unsigned ModeOf(const std::string& path) {
    struct stat state {};
    EXPECT_EQ(0, ::lstat(path.c_str(), &state));
    return state.st_mode & 07777u;
  }

  support::TempDir dir_;
  const std::string folder_ = dir_ / "journal";
};

std::string ErrorOf(const std::function<void()>& work) {
  try {
    work();
  } catch (const mgr_err::Error& error) {
    return error.what();
  }
  return "nothing was thrown";
}

TEST_F(JournalTest, AnEntryThatNothingIsWrittenToLeavesNoTrace) {
  { const Entry entry(kId, kHead); }
  EXPECT_FALSE(std::filesystem::exists(folder_));
  EXPECT_THAT(journal::OpenEntries(), IsEmpty());
  EXPECT_FALSE(journal::HasDead());
}

TEST_F(JournalTest, WithoutAFolderNothingIsWritten) {
  journal::SetFolder("");
  Entry entry(kId, kHead);
  entry.Write({{"line", {}}}, true);
  EXPECT_FALSE(entry.IsOpen());
  EXPECT_FALSE(std::filesystem::exists(folder_));
  EXPECT_THAT(journal::TakeDead(), IsEmpty());
}

TEST_F(JournalTest, IsForItsOwnerOnly) {
  Leave(kId, {{"line", {}}});
  EXPECT_EQ(0700u, ModeOf(folder_));
  EXPECT_EQ(0600u, ModeOf(folder_ + "/" + kId));
}

TEST_F(JournalTest, AnEntryOfALivingProcessIsNeverDead) {
  Entry entry(kId, kHead);
  entry.Write({{"line", {{"what", "line added"}}}}, true);
  EXPECT_FALSE(journal::HasDead());
  EXPECT_THAT(journal::TakeDead(), IsEmpty());
  const auto open = journal::OpenEntries();
  ASSERT_EQ(1u, open.size());
  EXPECT_TRUE(open[0].alive);
  EXPECT_THAT(open[0].steps, ElementsAre("line added"));
}

TEST_F(JournalTest, ADeadEntryHoldsItsStepsInOrder) {
  Leave(kId, {{"a", {}}, {"b", {{"what", "b was done"}}}});
  EXPECT_TRUE(journal::HasDead());
  const auto open = journal::OpenEntries();
  ASSERT_EQ(1u, open.size());
  EXPECT_FALSE(open[0].alive);
  EXPECT_EQ("mailbox add", open[0].request);
  EXPECT_EQ("alice", open[0].who);
  EXPECT_EQ("then", open[0].started);
  EXPECT_THAT(open[0].steps, ElementsAre("b was done"));

  const auto dead = journal::TakeDead();
  ASSERT_EQ(1u, dead.size());
  EXPECT_EQ(kHead, dead[0].entry.head);
  EXPECT_THAT(dead[0].entry.steps, ElementsAre(Step{"a", {}}, Step{"b", {{"what", "b was done"}}}));
  EXPECT_FALSE(journal::HasDead()) << "who has taken it holds it";
  EXPECT_THAT(journal::TakeDead(), IsEmpty());
}

// The look of another process, as long as the object lives.
class Look {
 public:
  explicit Look(const std::string& path) : file_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    EXPECT_EQ(0, ::flock(file_.get(), LOCK_SH | LOCK_NB));
  }

 private:
  Descriptor file_;
};

TEST_F(JournalTest, WhoLooksHidesADeadEntryFromNobodyElse) {
  Leave(kId, {{"a", {}}});
  const Look look(folder_ + "/" + kId);
  EXPECT_TRUE(journal::HasDead());
  ASSERT_EQ(1u, journal::OpenEntries().size());
  EXPECT_FALSE(journal::OpenEntries().front().alive);
}

TEST_F(JournalTest, WhoTakesADeadEntryWaitsForThoseThatLook) {
  Leave(kId, {{"a", {}}});
  auto look = std::make_unique<Look>(folder_ + "/" + kId);
  std::size_t locks = 0;
  support::SysFault fault;
  fault.OnCall([&](std::string_view call, std::size_t) {
    locks += call == "flock" ? 1u : 0u;
    if (locks == 4) {  // exclusive, shared, given back: the second exclusive try
      look.reset();
    }
  });
  EXPECT_EQ(1u, journal::TakeDead().size());
  EXPECT_EQ(4u, locks);
}

TEST_F(JournalTest, AStepNotedAgainTakesThePlaceOfTheFirstNote) {
  Leave(kId, {{"line", {{"key", "k"}, {"after", "1"}}},
              {"dir", {}},
              {"line", {{"key", "k"}, {"after", "2"}}}});
  const auto dead = journal::TakeDead();
  ASSERT_EQ(1u, dead.size());
  EXPECT_THAT(dead[0].entry.steps,
              ElementsAre(Step{"line", {{"key", "k"}, {"after", "2"}}}, Step{"dir", {}}));
}

TEST_F(JournalTest, WhatARecoveryHasNotedIsKnownToTheNext) {
  Leave(kId, {{"a", {{"what", "a"}}}, {"b", {{"what", "b"}}}, {"c", {{"what", "c"}}}});
  {
    auto dead = journal::TakeDead();
    ASSERT_EQ(1u, dead.size());
    journal::Note(dead[0], {journal::SettledStep(2, "files"), journal::SettledStep(0, "")});
    journal::Note(dead[0], {journal::CommittedStep()});
  }
  EXPECT_THAT(journal::OpenEntries().front().steps, ElementsAre("b")) << "what is still to be done";
  {
    auto dead = journal::TakeDead();
    EXPECT_THAT(dead[0].entry.settled, ElementsAre(0u, 2u));
    EXPECT_THAT(dead[0].entry.owed, ElementsAre("files"));
    EXPECT_EQ(4u, dead[0].entry.steps.size());
    EXPECT_EQ(journal::CommittedStep(), dead[0].entry.steps.back());
    journal::Note(dead[0], {journal::ToldStep()});
  }
  const auto dead = journal::TakeDead();
  EXPECT_THAT(dead[0].entry.owed, IsEmpty());
  EXPECT_THAT(dead[0].entry.settled, ElementsAre(0u, 2u));
}

// The process may have died in the middle of a record, or a note may have been refused there.
TEST_F(JournalTest, ANoteIsReadBehindEachTornRecord) {
  const std::string whole = journal::Record(kHead) + journal::Record({"a", {{"path", "p"}}});
  const std::string torn = journal::Record({"b", {{"path", "q"}}});
  for (std::size_t cut = 0; cut < torn.size(); ++cut) {
    SCOPED_TRACE("cut after byte " + std::to_string(cut));
    std::filesystem::create_directories(folder_);
    dir_.Write("journal/" + std::string(kId), whole + torn.substr(0, cut));
    {
      auto dead = journal::TakeDead();
      ASSERT_EQ(1u, dead.size());
      {
        support::SysFault fault;
        fault.CutWrites(5);
        fault.FailCall("fsync", EIO);
        EXPECT_THROW(journal::Note(dead[0], {journal::SettledStep(7, "")}), mgr_err::Error);
      }
      journal::Note(dead[0], {journal::SettledStep(0, "")});
    }
    const auto dead = journal::TakeDead();
    ASSERT_EQ(1u, dead.size());
    EXPECT_THAT(dead[0].entry.steps, ElementsAre(Step{"a", {{"path", "p"}}}));
    EXPECT_THAT(dead[0].entry.settled, ElementsAre(0u));
  }
}

TEST_F(JournalTest, KnowsWhichEntriesAreThereAndWhichAreDead) {
  const std::string living = "fedcba9876543210";
  Leave(kId, {{"a", {}}});
  Entry entry(living, kHead);
  entry.Write({{"a", {}}}, true);
  EXPECT_THAT(journal::Ids(), ElementsAre(kId, living));
  EXPECT_THAT(journal::DeadIds(), ElementsAre(kId));
  EXPECT_TRUE(journal::HasDead());
}

TEST_F(JournalTest, AnEntryWithoutAStepIsSwept) {
  Leave(kId, {});
  EXPECT_EQ(1u, Files());
  EXPECT_THAT(journal::TakeDead(), IsEmpty());
  EXPECT_EQ(0u, Files());
}

TEST_F(JournalTest, OtherFilesInTheFolderAreLeftAlone) {
  Leave(kId, {{"a", {}}});
  dir_.Write("journal/README", "x");
  dir_.Write("journal/0123456789ABCDEF", "x");
  EXPECT_EQ(1u, journal::OpenEntries().size());
  EXPECT_EQ(1u, journal::TakeDead().size());
  EXPECT_EQ(3u, Files());
}

TEST_F(JournalTest, WhatOpenStepsNeedBesideTheirPlacesIsTold) {
  Leave(kId, {{"swap", {{"aside", "/a"}, {"key", "/a"}}},
              {"swap", {{"aside", "/b"}, {"key", "/b"}}},
              {"dir", {{"path", "/c"}}}});
  EXPECT_THAT(journal::OpenEntries().at(0).asides, ElementsAre("/a", "/b"));
  {
    auto dead = journal::TakeDead();
    journal::Note(dead.front(), {journal::SettledStep(0, "")});
  }
  EXPECT_THAT(journal::OpenEntries().at(0).asides, ElementsAre("/b"));
}

TEST_F(JournalTest, ARemovedEntryIsGone) {
  for (const bool durable : {false, true}) {
    Entry entry(kId, kHead);
    entry.Write({{"a", {}}}, true);
    EXPECT_TRUE(entry.IsOpen());
    entry.Remove(durable);
    EXPECT_FALSE(entry.IsOpen());
    EXPECT_EQ(0u, Files());
  }
  Leave(kId, {{"a", {}}});
  journal::Remove(journal::TakeDead().front());
  EXPECT_EQ(0u, Files());
}

// A step may only be taken when it is known to be in the journal.
TEST_F(JournalTest, ARefusedWriteNamesTheEntry) {
  for (const char* call : {"mkdir", "open", "flock", "write", "fsync"}) {
    SCOPED_TRACE(call);
    std::filesystem::remove_all(folder_);
    Entry entry(kId, kHead);
    support::SysFault fault;
    fault.FailCall(call, ENOSPC);
    EXPECT_THAT(ErrorOf([&] { entry.Write({{"a", {}}}, true); }), HasSubstr("journal"));
  }
}

TEST_F(JournalTest, WhatIsNotDurableYetIsSyncedOnceAndTheNameWithTheFirst) {
  Entry entry(kId, kHead);
  entry.Write({{"a", {}}}, false);
  int syncs = 0;
  support::SysFault watch;
  watch.OnCall([&](std::string_view call, std::size_t) { syncs += call == "fsync" ? 1 : 0; });
  entry.Sync();
  EXPECT_EQ(2, syncs) << "the entry and its name";
  entry.Sync();
  EXPECT_EQ(2, syncs);
  entry.Write({{"b", {}}}, true);
  EXPECT_EQ(3, syncs) << "its name is durable";
}

}  // namespace
