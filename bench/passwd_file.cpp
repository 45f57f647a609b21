#include "bench/passwd_file.h"

#include <atomic>
#include <cstdio>

#include "test.h"

namespace bench {
namespace {

std::atomic<long> g_saves{0};

}  // namespace

Passwd::Passwd()
    : ConfDataSet(nullptr),
      name(this, "name"),
      passwd(this, "passwd"),
      uid(this, "uid", &test::Trim<&test::Numeric>),
      gid(this, "gid", &test::Trim<&test::Numeric>),
      info(this, "info"),
      home(this, "home"),
      shell(this, "shell"),
      flags(this, "flags"),
      maildir(this, "maildir") {}

PasswdConfig::PasswdConfig() {
  RegisterSyntax(UnixConfParams());
  RegisterAfterSave();
  RegisterDataSet<Passwd>();
}

long PasswdConfig::Saves() noexcept { return g_saves; }

void PasswdConfig::AfterSave(ConfRef&, ConfCache::SaveReason& reason) {
  if (reason == ConfCache::srWritten) ++g_saves;
}

std::string NameOfLine(long line) {
  char name[64];
  std::snprintf(name, sizeof name, "u%07ld@d%03ld.test", line, line % 1000);
  return name;
}

void AddMailbox(Passwd& line, const std::string& name) {
  line.New();
  line.name.Set(name);
  line.passwd.Set("{CRAM-MD5}" + std::string(64, '0'));
  line.uid.Set("5000");
  line.gid.Set("5000");
  line.home.Set("/home/ml/" + name.substr(0, name.find('@')));
  line.maildir.Set("maildir:~/.maildir userdb_quota_rule=*:bytes=500M");
  line.Post("");
}

}  // namespace bench
