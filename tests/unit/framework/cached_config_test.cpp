#include "cached_config.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "tests/unit/framework/conf_fixture.h"

namespace {

using conf_fixture::ErrorOf;
using conf_fixture::Line;
using conf_fixture::Users;

class CountingConfig : public MgrCachedConfig<CountingConfig> {
 public:
  CountingConfig() {
    ++made;
    RegisterSyntax(UnixConfParams());
    RegisterDataSet<Users>();
    std::this_thread::yield();
  }
  static inline std::atomic<int> made = 0;
};

TEST(CachedConfig, TwoThreadsThatOpenFirstAtTheSameTimeRegisterOnce) {
  const support::TempDir folder;
  folder.Write("users", Line("a") + "\n");
  std::atomic<int> ready = 0;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 2; ++thread) {
    threads.emplace_back([&] {
      ++ready;
      while (ready < 2) std::this_thread::yield();
      const auto users = CountingConfig::Get<Users>(folder / "users", true);
      EXPECT_TRUE(users->Find("a"));
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(CountingConfig::made, 1);
  CountingConfig::Get<Users>(folder / "other", true);
  EXPECT_EQ(CountingConfig::made, 1);
}

class FailingConfig : public MgrCachedConfig<FailingConfig> {
 public:
  FailingConfig() {
    if (++tries == 1) throw mgr_err::Error("later", "first try");
    RegisterSyntax(UnixConfParams());
    RegisterDataSet<Users>();
  }
  static inline int tries = 0;
};

TEST(CachedConfig, ARegistrationThatFailsIsTriedAgain) {
  const support::TempDir folder;
  EXPECT_EQ(ErrorOf([&] { FailingConfig::Get<Users>(folder / "users", true); }),
            "later: first try");
  FailingConfig::Get<Users>(folder / "users", true);
  EXPECT_EQ(FailingConfig::tries, 2);
}

TEST(CachedConfig, TheCacheIsOneForAll) {
  EXPECT_EQ(BaseCachedConfig<MgrConfCache>::Instance(), BaseCachedConfig<MgrConfCache>::Instance());
}

TEST(CachedConfig, TheHookPassesOnToTheConfigurationsOwn) {
  const support::TempDir folder;
  conf_fixture::UsersConfig::TakeReasons();
  conf_fixture::AddUser(conf_fixture::UsersConfig::Open(folder / "users"), "a");
  EXPECT_EQ(conf_fixture::UsersConfig::TakeReasons().size(), 1U);
}

TEST(CachedConfig, AMissingFileIsAnErrorWhenItMustNotBeMade) {
  const support::TempDir folder;
  const std::string path = folder / "users";
  EXPECT_EQ(ErrorOf([&] { conf_fixture::UsersConfig::Open(path, false); }),
            "missed: file: " + path);
}

}  // namespace
