// Files that others may change are not believed by the built program: the configuration and the
// plug-ins, which run with its rights.

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "tests/unit/brisq/instance_fixture.h"

namespace brisq {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

constexpr uid_t kOther = 54322;
constexpr char kWayOut[] = "; only root may be able to change it: chown root and chmod go-w\n";

class UnsafeFiles : public InstanceTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) {
      GTEST_SKIP() << "gives files to other users: needs root";
    }
    InstanceTest::SetUp();
    folder_ = dir_.MakeFolder("plugins");
    plugin_ = folder_ + "/email_dovecot.so";
    fs::copy_file(support::BuildFolder() + "/lib/brisq/email_dovecot.so", plugin_);
  }

  void UsePlugins(const std::string& paths) {
    const std::string panel = "[panel]\n";
    const std::string text = dir_.Read("brisq.toml");
    dir_.Write("brisq.toml", panel + "plugins = [" + paths + "]\n" + text.substr(panel.size()));
  }

  void ExpectRefused(const std::string& file, const std::string& why) {
    for (const char* words : {"owner list", "check", "mailbox add a@b.example --generate"}) {
      SCOPED_TRACE(words);
      const Ran ran = Run(words);
      EXPECT_EQ(10, ran.status);
      EXPECT_EQ("", ran.out);
      EXPECT_EQ("brisq: config: " + file + ": not safe: " + why + kWayOut, ran.err);
    }
  }

  std::string folder_, plugin_;
};

struct Spoiled {
  const char* name;
  std::function<void()> spoil;
  std::string why;
};

std::vector<Spoiled> WaysToSpoil(const std::string& file, const std::string& folder) {
  return {
      {"file open to all", [=] { ::chmod(file.c_str(), 0666); },
       file + " is writable by other users"},
      {"file of another user", [=] { ::chown(file.c_str(), kOther, 0); },
       file + " belongs to another user"},
      {"file open to a group",
       [=] {
         ::chown(file.c_str(), 0, kOther);
         ::chmod(file.c_str(), 0664);
       },
       file + " is writable by the group 54322"},
      {"folder open to all", [=] { ::chmod(folder.c_str(), 0777); },
       folder + " is writable by other users"},
      {"folder of another user", [=] { ::chown(folder.c_str(), kOther, 0); },
       folder + " belongs to another user"},
  };
}

void MakeSafe(const std::string& file, const std::string& folder) {
  ::chown(file.c_str(), 0, 0);
  ::chmod(file.c_str(), 0664);
  ::chown(folder.c_str(), 0, 0);
  ::chmod(folder.c_str(), 0775);
}

TEST_F(UnsafeFiles, APluginThatOthersCouldChangeIsNamedAndNothingIsLoaded) {
  // The first one would leave its mark in the log when it is tried.
  UsePlugins("\"" + support::TestPluginFolder() + "/throws_at_load.so\", \"plugins\"");
  for (const Spoiled& c : WaysToSpoil(plugin_, folder_)) {
    SCOPED_TRACE(c.name);
    MakeSafe(plugin_, folder_);
    c.spoil();
    ExpectRefused(plugin_, c.why);
  }
  MakeSafe(plugin_, folder_);
  const Ran ran = Run("owner list");
  EXPECT_EQ(0, ran.status);
  EXPECT_THAT(ran.err, HasSubstr("no licence"));
  EXPECT_THAT(ran.err, Not(HasSubstr("not safe")));
}

TEST_F(UnsafeFiles, AConfigurationThatOthersCouldChangeIsNotRead) {
  const std::string folder = dir_.MakeFolder("etc");
  const std::string file = folder + "/brisq.toml";
  fs::copy_file(dir_ / "brisq.toml", file);
  const std::string before = dir_ / "brisq.toml";
  for (const Spoiled& c : WaysToSpoil(file, folder)) {
    SCOPED_TRACE(c.name);
    fs::remove(before);
    fs::create_symlink(file, before);
    MakeSafe(file, folder);
    EXPECT_EQ(0, Run("owner list").status);
    c.spoil();
    ExpectRefused(before, c.why);
  }
}

// Whoever owns the folders that hold the program could replace all of it.
TEST_F(UnsafeFiles, APluginBesideTheProgramIsAsSafeAsTheProgram) {
  const fs::path tree = beside_ / "checkout";
  fs::create_directories(tree / "bin");
  fs::copy(support::BuildFolder() + "/bin/brisq", tree / "bin/brisq");
  fs::copy(support::BuildFolder() + "/lib", tree / "lib", fs::copy_options::recursive);
  program_ = tree / "bin/brisq";
  for (const char* folder : {"", "lib"}) {
    ::chown((tree / folder).c_str(), kOther, kOther);
  }
  EXPECT_EQ(0, Run("owner list").status);
  const std::string own = tree / "lib/brisq/email_dovecot.so";
  ::chmod((tree / "lib").c_str(), 0777);
  ExpectRefused(own, (tree / "lib").string() + " is writable by other users");
  ::chmod((tree / "lib").c_str(), 0755);
  ::chown((tree / "lib/brisq").c_str(), kOther, kOther);
  ExpectRefused(own, (tree / "lib/brisq").string() + " belongs to another user");
}

}  // namespace
}  // namespace brisq
