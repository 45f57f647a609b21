#include "tests/soak/store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "mgr_err.h"
#include "tests/soak/passwd_text.h"
#include "tests/unit/framework/conf_fixture.h"

namespace soak {
namespace {

using conf_fixture::Users;
using conf_fixture::UsersConfig;

class EngineStore : public Store {
 public:
  explicit EngineStore(const std::string& path) : users_(UsersConfig::Open(path)) {}

  void Add(const std::string& name, const std::string& password) override {
    users_->New();
    users_->name.Set(name);
    users_->passwd.Set(password);
    users_->uid.Set("1000");
    users_->gid.Set("1000");
    users_->home.Set("/home/" + name);
    users_->maildir.Set("maildir:~/.maildir userdb_quota_rule=*:bytes=0M");
    users_->Post("");
  }
  void Set(const std::string& name, const std::string& password) override {
    conf_fixture::SetPassword(users_, name, password);
  }
  void Remove(const std::string& name) override {
    users_->Assert(name);
    users_->_Delete(true);
  }

 private:
  Cursor<Users> users_;
};

// Changes the text under a lock; how the text gets into the file is another matter.
class NaiveStore : public Store {
 public:
  explicit NaiveStore(const std::string& path) : path_(path) {}

  void Add(const std::string& name, const std::string& password) override {
    Change(name, LineOf(name, password));
  }
  void Set(const std::string& name, const std::string& password) override {
    Change(name, LineOf(name, password));
  }
  void Remove(const std::string& name) override { Change(name, {}); }

 protected:
  virtual bool Put(const std::string& text, const struct stat& read) = 0;
  const std::string path_;

 private:
  void Change(const std::string& name, const std::string& line) {
    const int lock = ::open((path_ + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    Require(lock >= 0 && ::flock(lock, LOCK_EX) == 0, "lock");
    for (bool put = false; !put;) {
      struct stat read {};
      Require(::stat(path_.c_str(), &read) == 0, "stat");
      put = Put(With(ReadRaw(path_), name, line), read);
    }
    ::close(lock);
  }

  static std::string With(std::string text, const std::string& name, const std::string& line) {
    const std::size_t at =
        text.starts_with(name + ":") ? 0 : text.find("\n" + name + ":") + std::size_t{1};
    const bool there = at != 0 || text.starts_with(name + ":");
    if (!there) return text + (text.ends_with('\n') ? "" : "\n") + line;
    return text.replace(at, text.find('\n', at) + 1 - at, line);
  }
};

class RenamingStore : public NaiveStore {
 public:
  using NaiveStore::NaiveStore;

 private:
  bool Put(const std::string& text, const struct stat& read) override {
    const std::string temporary = path_ + ".tmp";
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640);
    Require(fd >= 0, "open to write");
    WriteRaw(fd, text);
    ::fsync(fd);
    ::close(fd);
    struct stat now {};
    Require(::stat(path_.c_str(), &now) == 0, "stat");
    const bool same = now.st_ino == read.st_ino && now.st_size == read.st_size &&
                      now.st_mtim.tv_sec == read.st_mtim.tv_sec &&
                      now.st_mtim.tv_nsec == read.st_mtim.tv_nsec;
    return same && std::rename(temporary.c_str(), path_.c_str()) == 0;
  }
};

class InPlaceStore : public NaiveStore {
 public:
  using NaiveStore::NaiveStore;

 private:
  bool Put(const std::string& text, const struct stat&) override {
    const int fd = ::open(path_.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
    Require(fd >= 0, "open to write");
    WriteRaw(fd, std::string_view(text).substr(0, text.size() / 2));
    WriteRaw(fd, std::string_view(text).substr(text.size() / 2));
    ::close(fd);
    return true;
  }
};

}  // namespace

std::unique_ptr<Store> MakeEngineStore(const std::string& path) {
  return std::make_unique<EngineStore>(path);
}

std::unique_ptr<Store> MakeRenamingStore(const std::string& path) {
  return std::make_unique<RenamingStore>(path);
}

std::unique_ptr<Store> MakeInPlaceStore(const std::string& path) {
  return std::make_unique<InPlaceStore>(path);
}

}  // namespace soak
