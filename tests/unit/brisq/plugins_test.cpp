// Plug-ins of every bad kind in the configuration of the built program: it works on, and says
// which.

#include <dlfcn.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "tests/support/sanitized.h"
#include "tests/unit/brisq/instance_fixture.h"

namespace brisq {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

class PluginsTest : public InstanceTest {
 protected:
  // The configuration with these plug-ins, in order.
  void Configure(const std::vector<std::string>& files) {
    std::string list;
    for (const std::string& file : files) list += (list.empty() ? "\"" : ", \"") + file + "\"";
    const std::string text = dir_.Read("brisq.toml");
    const std::string panel = "[panel]\n";
    ASSERT_TRUE(text.starts_with(panel));
    dir_.Write("brisq.toml", panel + "plugins = [" + list + "]\n" + text.substr(panel.size()));
  }

  // Copies have names of their own, which the messages must hold.
  std::string Copy(const std::string& plugin, const std::string& as) const {
    fs::copy_file(support::TestPluginFolder() + "/" + plugin + ".so", beside_ / as);
    return beside_ / as;
  }

  const std::string good_ = support::BuildFolder() + "/lib/brisq/email_dovecot.so";
};

struct Bad {
  const char* name;
  const char* plugin;  // empty: none that could be copied
  const char* error;
};

const Bad kBad[] = {
    {"throws at load", "throws_at_load", "throws an exception that nobody catches: no licence"},
    {"ends the process at load", "aborts_at_load", "ends the process by signal 6"},
    {"lacks a symbol", "missing_symbol", "undefined symbol"},
    {"is no plug-in", "no_plugin", "is no plug-in: it registers no module"},
    {"throws when it is built", "throws_when_built", "config: licence: has ended"},
    {"is no library", "", "invalid ELF header"},
    {"is not there", "", "cannot open shared object file"},
};

TEST_F(PluginsTest, ABadPluginIsNamedAndTheGoodOneServesAllTheSame) {
  std::vector<std::string> files;
  for (const Bad& bad : kBad) {
    const std::string as = std::to_string(files.size()) + ".so";
    files.push_back(*bad.plugin != '\0' ? Copy(bad.plugin, as) : beside_ / as);
  }
  beside_.Write("5.so", std::string(10000, 'x'));
  fs::create_symlink(good_, beside_ / "link.so");
  fs::copy_file(good_, beside_ / "copy.so");
  const std::vector<std::string> twice = {good_, beside_ / "link.so", beside_ / "copy.so"};
  files.push_back(good_);
  files.insert(files.end(), twice.begin(), twice.end());
  Configure(files);
  Expect(0, "owner add demo --uid 5000 --gid 5000 --home '" + (dir_ / "home") + "'");
  Expect(0, "domain add example.org --owner demo");
  const Ran ran = Expect(0, "mailbox add bob@example.org --password-stdin", "secret\n");
  int named = 0;
  for (std::size_t at = 0; at < std::size(kBad); ++at) {
    SCOPED_TRACE(kBad[at].name);
    const std::size_t line = ran.err.find("plug-in " + files[at] + ": ");
    ASSERT_NE(std::string::npos, line) << ran.err;
    const bool said = ran.err.find(kBad[at].error, line) < ran.err.find('\n', line);
    EXPECT_TRUE(said) << ran.err;
    named += said ? 1 : 0;
  }
  const char* const reasons[] = {"is loaded already", "is loaded already",
                                 "its module constructor threw: exists: module: email_pop3"};
  for (std::size_t at = 0; at < twice.size(); ++at) {
    const bool said =
        ran.err.find("plug-in " + twice[at] + ": " + reasons[at]) != std::string::npos;
    EXPECT_TRUE(said) << twice[at] << "\n" << ran.err;
    named += said ? 1 : 0;
  }
  std::printf("bad plug-ins: %zu, named with their reason: %d\n", std::size(kBad) + twice.size(),
              named);
  EXPECT_THAT(Passwd(), HasSubstr("bob@example.org:{CRAM-MD5}hash:"));
}

TEST_F(PluginsTest, AloneEachLeavesAHostThatListsAndSaysWhyNoMailboxCanBeMade) {
  for (const Bad& bad : kBad) {
    SCOPED_TRACE(bad.name);
    if (*bad.plugin == '\0') continue;
    const std::string file = Copy(bad.plugin, std::string(bad.plugin) + ".so");
    const std::string before = dir_.Read("brisq.toml");
    Configure({file});
    EXPECT_EQ(0, Run("owner list").status);
    Run("owner add demo --uid 5000 --gid 5000 --home '" + (dir_ / "home") + "'");
    Run("domain add example.org --owner demo");
    const Ran ran = Run("mailbox add bob@example.org --password-stdin", "secret\n");
    EXPECT_NE(0, ran.status);
    EXPECT_THAT(ran.err, HasSubstr(file));
    EXPECT_THAT(ran.err, HasSubstr(bad.error));
    EXPECT_THAT(ran.err, HasSubstr("no plug-in serves the parameter POP3"));
    EXPECT_THAT(ran.err, Not(HasSubstr("secret")));
    EXPECT_EQ("", Run("mailbox list").out);
    dir_.Write("brisq.toml", before);
  }
}

// A slip would change nothing without a word.
TEST_F(PluginsTest, EveryCommandWarnsOfAKeyThatNothingReads) {
  EXPECT_EQ("", Expect(0, "owner list").err);
  dir_.Write("brisq.toml", dir_.Read("brisq.toml") + "dovecot-certonf = \"/x\"\n");
  const std::string text = dir_.Read("brisq.toml");
  const auto line = std::to_string(std::count(text.begin(), text.end(), '\n'));
  const std::string warning = "brisq: warning: " + (dir_ / "brisq.toml:") + line +
                              ": \"dovecot-certonf\" is not known in [path] and changes nothing: "
                              "did you mean \"dovecot-certconf\"?\n";
  for (const char* words : {"owner list", "check", "mailbox list"}) {
    SCOPED_TRACE(words);
    EXPECT_EQ(warning, Expect(0, words).err);
  }
}

// Naive code loads what it is told to, and is gone.
TEST(NaiveLoadingDeathTest, EndsTheProcess) {
  if (support::kSanitized) GTEST_SKIP() << "a sanitizer ends the process in its own way";
  for (const char* plugin : {"throws_at_load", "aborts_at_load"}) {
    SCOPED_TRACE(plugin);
    const std::string file = support::TestPluginFolder() + "/" + plugin + ".so";
    EXPECT_EXIT(
        {
          ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
          std::_Exit(0);
        },
        testing::KilledBySignal(SIGABRT), "");
  }
}

}  // namespace
}  // namespace brisq
