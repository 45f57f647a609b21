#pragma once

#include <gtest/gtest.h>
#include <sys/vfs.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "cached_config.h"
#include "conf_dataset.h"
#include "mgr_err.h"
#include "test.h"
#include "tests/support/temp_dir.h"

namespace conf_fixture {

/// Nine columns as in a mail server's passwd-file.
class Users : public UnixDataSet {
 public:
  Users() : ConfDataSet(nullptr) {}

  dd::Field name{this, "name"};
  dd::Field passwd{this, "passwd"};
  dd::Field uid{this, "uid", &test::Trim<&test::Numeric>};
  dd::Field gid{this, "gid", &test::Trim<&test::Numeric>};
  dd::Field info{this, "info"};
  dd::Field home{this, "home"};
  dd::Field shell{this, "shell"};
  dd::Field flags{this, "flags"};
  dd::Field maildir{this, "maildir"};
};

/// The configuration of such files; notes what its after-save hook is told.
class UsersConfig : public MgrCachedConfig<UsersConfig> {
 public:
  UsersConfig() {
    RegisterSyntax(UnixConfParams());
    RegisterAfterSave();
    RegisterDataSet<Users>();
  }

  void AfterSave(ConfRef& ref, ConfCache::SaveReason& reason) override {
    std::function<void(ConfRef&)> also;
    {
      const std::lock_guard lock(mutex_);
      reasons_.push_back(reason);
      also = also_;
    }
    if (also) also(ref);
  }

  static Cursor<Users> Open(const std::string& path, bool create = true) {
    return Get<Users>(path, create);
  }
  /// Reasons of the saves since the last call.
  static std::vector<ConfCache::SaveReason> TakeReasons() {
    const std::lock_guard lock(mutex_);
    return std::exchange(reasons_, {});
  }
  /// Has `also` called by every hook call, until it is set anew.
  static void Also(std::function<void(ConfRef&)> also) {
    const std::lock_guard lock(mutex_);
    also_ = std::move(also);
  }

 private:
  inline static std::mutex mutex_;
  inline static std::vector<ConfCache::SaveReason> reasons_;
  inline static std::function<void(ConfRef&)> also_;
};

/// A line of a mailbox.
inline std::string Line(const std::string& name, const std::string& hash = "{X}h") {
  return name + ":" + hash + ":1000:1000::/home/" + name +
         ":::maildir:~/.maildir userdb_quota_rule=*:bytes=0M";
}

/// True on file systems whose files are always read, as containers have them.
inline bool IsNeverMapped(const std::string& folder) {
  constexpr long kOverlay = 0x794c7630;
  struct statfs info {};
  EXPECT_EQ(::statfs(folder.c_str(), &info), 0);
  return info.f_type == kOverlay;
}

/// Names of all records, in the order of a walk.
inline std::vector<std::string> Names(const Cursor<Users>& users) {
  std::vector<std::string> names;
  for (users->First(); !users->Eof(); users->Next()) names.push_back(users->name.Str());
  return names;
}

inline void AddUser(const Cursor<Users>& users, const std::string& name) {
  users->New();
  users->name.Set(name);
  users->uid.Set("1000");
  users->gid.Set("1000");
  users->home.Set("/home/" + name);
  users->maildir.Set("maildir:~/.maildir userdb_quota_rule=*:bytes=0M");
  users->Post("");
}

inline void SetPassword(const Cursor<Users>& users, const std::string& name,
                        const std::string& hash) {
  users->Assert(name);
  users->passwd.Set(hash);
  users->Post("");
}

/// The error that `call` throws, as text; empty when it throws none.
inline std::string ErrorOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const mgr_err::Error& error) {
    return error.what();
  }
  return {};
}

/// A file in a folder of its own, seen through the process's cache.
class ConfTest : public ::testing::Test {
 protected:
  ConfTest() { UsersConfig::TakeReasons(); }
  ~ConfTest() override { UsersConfig::Also({}); }

  Cursor<Users> Open() const { return UsersConfig::Open(path_); }
  void Write(const std::string& content) const { folder_.Write("users", content); }
  std::string Content() const { return support::ReadFile(path_); }

  support::TempDir folder_;
  const std::string path_ = folder_ / "users";
};

}  // namespace conf_fixture
