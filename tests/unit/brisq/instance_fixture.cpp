#include "tests/unit/brisq/instance_fixture.h"

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>

namespace brisq {

namespace fs = std::filesystem;

Ran InstanceTest::Expect(int status, const std::string& words, const std::string& input) {
  const Ran ran = Run(words, input);
  EXPECT_EQ(status, ran.status) << words << "\n" << ran.out << ran.err;
  return ran;
}

std::string InstanceTest::MakeCertificate(const std::string& domain) {
  const std::string cert = beside_ / (domain + ".pem");
  const std::string key = beside_ / (domain + ".key.pem");
  EXPECT_EQ(0, std::system(("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes"
                            " -keyout '" +
                            key + "' -out '" + cert + "' -days 90 -subj '/CN=" + domain +
                            "' -addext 'subjectAltName=DNS:" + domain +
                            "' >/dev/null 2>&1 && chmod 600 '" + key + "'")
                               .c_str()));
  return "--cert '" + cert + "' --key '" + key + "'";
}

namespace {

std::string StateOf(const fs::path& path) {
  struct stat info {};
  ::lstat(path.c_str(), &info);
  std::string state = std::to_string(info.st_mode) + " " + std::to_string(info.st_uid) + ":" +
                      std::to_string(info.st_gid) + " " + std::to_string(info.st_ino) + " " +
                      std::to_string(info.st_mtim.tv_sec) + "." +
                      std::to_string(info.st_mtim.tv_nsec);
  if (S_ISREG(info.st_mode)) state += "\n" + support::ReadFile(path);
  if (S_ISLNK(info.st_mode)) state += " -> " + fs::read_symlink(path).string();
  return state;
}

std::string Dump(const std::string& database, const std::string& to) {
  EXPECT_EQ(0, std::system(("sqlite3 '" + database + "' .dump >'" + to + "'").c_str()));
  return support::ReadFile(to);
}

}  // namespace

std::map<std::string, std::string> InstanceTest::Everything() const {
  std::map<std::string, std::string> all;
  for (const auto& entry : fs::recursive_directory_iterator(dir_.path())) {
    const std::string path = entry.path().lexically_relative(dir_.path());
    if (!path.starts_with("log") && !path.starts_with("state")) all[path] = StateOf(entry.path());
  }
  all["."] = StateOf(dir_.path());
  all["database"] = Dump(dir_ / "state/panel.db", beside_ / "dump");
  return all;
}

std::string InstanceTest::ChangedSince(const std::map<std::string, std::string>& before) const {
  auto after = Everything();
  std::string changed;
  for (const auto& [path, state] : before) {
    if (after[path] != state) changed += path + ": " + state + "\n  now: " + after[path] + "\n";
    after.erase(path);
  }
  for (const auto& [path, state] : after) changed += path + " is new\n";
  return changed;
}

}  // namespace brisq
