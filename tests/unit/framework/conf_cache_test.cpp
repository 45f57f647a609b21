#include "conf_cache.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "framework/conf_defer.h"
#include "tests/unit/framework/conf_fixture.h"

namespace {

using conf_fixture::ErrorOf;
using conf_fixture::Line;
using conf_fixture::Users;

/// Hears of saves.
struct Listener {
  void Saved(ConfRef& ref, ConfCache::SaveReason& reason) {
    saves.push_back(ref.path() + " " + std::to_string(reason));
  }
  std::vector<std::string> saves;
};

class Counted : public Users {
 public:
  Counted() : ConfDataSet(nullptr) { ++alive; }
  ~Counted() override { --alive; }
  static inline int alive = 0;
};

class ConfCacheTest : public ::testing::Test {
 protected:
  ConfCacheTest() {
    cache_.Register("users", UnixConfParams());
    cache_.Add("users", "lines", "lines", &ConfCache::Create<Users>);
    cache_.Add("users", "counted", "counted", &ConfCache::Create<Counted>);
  }
  ConfRef Config(const std::string& path, bool create) {
    return cache_.Config("users", mgr_file::safe::Folder(), path, create);
  }

  support::TempDir folder_;
  const std::string path_ = folder_ / "users";
  MgrConfCache cache_{20};
};

TEST_F(ConfCacheTest, AMissingFileIsEmptyOrAnErrorAsAsked) {
  EXPECT_EQ(ErrorOf([this] { Config(path_, false); }), "missed: file: " + path_);
  const Cursor<Users> users(Config(path_, true)._Get("lines"));
  users->First();
  EXPECT_TRUE(users->Eof());
  struct stat info {};
  EXPECT_EQ(::stat(path_.c_str(), &info), -1) << "made before the first save";
  conf_fixture::AddUser(users, "a");
  Config(path_, false);
}

TEST_F(ConfCacheTest, WhatIsNoFileIsRefused) {
  folder_.MakeFolder("folder");
  ASSERT_EQ(::mkfifo((folder_ / "fifo").c_str(), 0600), 0);
  for (const char* name : {"folder", "fifo"}) {
    const std::string path = folder_ / name;
    EXPECT_NE(ErrorOf([&] { Config(path, true); }).find(path + ": not a regular file"),
              std::string::npos);
  }
}

TEST_F(ConfCacheTest, NamesThatWereNotRegisteredAreRefused) {
  EXPECT_EQ(ErrorOf([this] { cache_.Config("other", {}, path_, true); }),
            "internal: other: not a registered configuration");
  EXPECT_EQ(ErrorOf([this] { Config(path_, true)._Get("other"); }),
            "internal: other: not a dataset of configuration users");
}

TEST_F(ConfCacheTest, FilesOfUsersFoldersAreRefused) {
  const mgr_file::safe::Folder home("/home/u", "/home/u/mail", 1000, 1000);
  EXPECT_EQ(ErrorOf([&] { cache_.Config("users", home, "file", true); }),
            "internal: file: files in users' directories are not kept here");
}

TEST_F(ConfCacheTest, EveryGetMakesADatasetThatGoesWithItsLastCursor) {
  {
    const ConfRef ref = Config(path_, true);
    const Cursor<Counted> one(ref._Get("counted"));
    {
      const Cursor<Counted> copy = one;
      const Cursor<Counted> other(ref._Get("counted"));
      EXPECT_NE(one.get(), other.get());
      EXPECT_EQ(Counted::alive, 2);
    }
    EXPECT_EQ(Counted::alive, 1);
  }
  EXPECT_EQ(Counted::alive, 0);
}

TEST_F(ConfCacheTest, ACursorOfAnotherClassHoldsNothing) {
  const Cursor<Counted> cursor(Config(path_, true)._Get("lines"));
  EXPECT_FALSE(cursor);
}

TEST_F(ConfCacheTest, HooksHearOfSavesOfTheirConfiguration) {
  Listener listener;
  cache_._AfterSave("users", &listener, &Listener::Saved);
  const Cursor<Users> users(Config(path_, true)._Get("lines"));
  conf_fixture::AddUser(users, "a");
  EXPECT_EQ(listener.saves, std::vector<std::string>{path_ + " 0"});
}

TEST_F(ConfCacheTest, ConfigurationsOfOneSyntaxShareTheDocumentAndHearOfEachOthersSaves) {
  cache_.Register("panel", UnixConfParams());
  cache_.Add("panel", "lines", "lines", &ConfCache::Create<Users>);
  Listener listener;
  cache_._AfterSave("users", &listener, &Listener::Saved);
  const Cursor<Users> users(Config(path_, true)._Get("lines"));
  const Cursor<Users> same(
      cache_.Config("panel", mgr_file::safe::Folder(), path_, true)._Get("lines"));
  {
    DeferSaves saves(DeferSaves::Between::kNever);
    conf_fixture::AddUser(users, "a");
    EXPECT_TRUE(same->Find("a")) << "not saved, and seen all the same";
    conf_fixture::AddUser(same, "b");
  }
  EXPECT_EQ(listener.saves, std::vector<std::string>{path_ + " 0"});
  conf_fixture::AddUser(same, "c");
  EXPECT_EQ(listener.saves.size(), 2U);
}

TEST_F(ConfCacheTest, ACursorOutlivesTheReferenceItCameFrom) {
  folder_.Write("users", Line("a") + "\n");
  Cursor<Users> users;
  {
    const ConfRef ref = Config(path_, true);
    users = Cursor<Users>(ref._Get("lines"));
  }
  EXPECT_TRUE(users->Find("a"));
}

TEST_F(ConfCacheTest, OtherSyntaxesHaveOtherSeparatorsAndComments) {
  cache_.Register("bars", std::make_shared<mgr_token::Params>(mgr_token::Params{'|', ";!"}));
  cache_.Add("bars", "lines", "lines", &ConfCache::Create<Users>);
  folder_.Write("users", ";|1|2|3|4|5|6|7|8\na:b|h|1|2|3|4|5|6|7\n!|1|2|3|4|5|6|7|8\n");
  const Cursor<Users> users(
      cache_.Config("bars", mgr_file::safe::Folder(), path_, true)._Get("lines"));
  users->First();
  EXPECT_EQ(users->name.Str(), "a:b");
  users->home.Set("x:y");
  users->Post("");
  EXPECT_EQ(folder_.Read("users"), ";|1|2|3|4|5|6|7|8\na:b|h|1|2|3|x:y|5|6|7\n!|1|2|3|4|5|6|7|8\n");
}

}  // namespace
