// What an administrator is told when doveadm is not what it should be.

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "tests/support/stub_program.h"
#include "tests/unit/brisq/program_fixture.h"

namespace brisq {
namespace {

constexpr uid_t kOther = 54322;

class DoveadmAnswers : public ProgramTest {
 protected:
  void UseDoveadm(const std::string& path) {
    std::string settings = dir_.Read("brisq.toml");
    const std::size_t at = settings.find("dovecot-doveadm = \"") + 19;
    settings.replace(at, settings.find('"', at) - at, path);
    dir_.Write("brisq.toml", settings);
  }
};

TEST_F(DoveadmAnswers, AProgramThatOthersCouldReplaceIsNamedAndNeverRun) {
  const std::string folder = dir_.MakeFolder("tools");
  const std::string mark = dir_ / "ran";
  const std::string program =
      support::WriteStub(folder + "/doveadm", "touch '" + mark + "'; echo 'CRAM-MD5 '");
  struct Case {
    const char* name;
    std::function<void()> spoil;
    std::string path;
    std::string why;
  };
  const Case cases[] = {
      {"open to all", [&] { ::chmod(program.c_str(), 0777); }, program,
       program + " is writable by other users"},
      {"of another user", [&] { ::chown(program.c_str(), kOther, 0); }, program,
       program + " belongs to another user"},
      {"in a folder of another user", [&] { ::chown(folder.c_str(), kOther, 0); }, program,
       folder + " belongs to another user"},
      {"relative", [] {}, "tools/doveadm", "tools/doveadm is no absolute path"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ::chown(program.c_str(), 0, 0);
    ::chmod(program.c_str(), 0755);
    c.spoil();
    UseDoveadm(c.path);
    const Ran ran = Run("owner list");
    EXPECT_EQ(10, ran.status);
    EXPECT_EQ("brisq: config: dovecot-doveadm: not safe: " + c.why + "\n", ran.err);
    EXPECT_FALSE(std::filesystem::exists(mark));
  }
}

// It is begun while the panel is opened, and the back-end takes it over.
TEST_F(DoveadmAnswers, TheSchemesAreAskedForOnceAStart) {
  UseDoveadm(support::WriteStub(dir_ / "doveadm",
                                "echo \"$@\" >> '" + (dir_ / "calls") + "'; echo 'CRAM-MD5 '"));
  EXPECT_EQ(0, Run("owner list").status);
  EXPECT_EQ("pw -l\n", dir_.Read("calls"));
}

// The hash is begun then, too, when the request can be expected to ask for it.
TEST_F(DoveadmAnswers, EachPasswordIsHashedOnce) {
  AddDomain();
  struct Case {
    const char* words;
    int status;
    int calls;
  };
  const Case cases[] = {
      {"mailbox add Bob@example.org --password-stdin --dry-run", 0, 1},
      {"mailbox add Bob@example.org --password-stdin", 0, 1},
      {"mailbox add bob@example.org --password-stdin", 6, 0},
      {"mailbox add eve@example.net --password-stdin", 4, 0},
      {"mailbox add --password-stdin -- -eve@example.org", 10, 0},
      {"mailbox add eve@example.org --generate", 0, 1},
      {"mailbox passwd BOB@example.org --password-stdin", 0, 1},
      {"mailbox passwd bob@example.org --password-stdin --dry-run", 0, 1},
      {"mailbox passwd bob@example.org --generate", 0, 1},
      {"mailbox passwd none@example.org --password-stdin", 4, 0},
      {"mailbox show bob@example.org", 0, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.words);
    doveadm_.Answers("{CRAM-MD5}hash\n");
    const Ran ran = Run(c.words, "secret\n");
    EXPECT_EQ(c.status, ran.status) << ran.err;
    EXPECT_EQ(c.calls, doveadm_.Calls());
  }
}

// A bad password is told where it ever was: by the request, after what is said of the panel.
TEST_F(DoveadmAnswers, ABadPasswordIsToldOnceThePanelIsOpen) {
  AddDomain();
  EXPECT_EQ("brisq: invalid-input: password: must not be empty\n",
            Run("mailbox add bob@example.org --password-stdin", "").err);
  std::string settings = dir_.Read("brisq.toml");
  const std::string panel = "[panel]\n";
  dir_.Write("brisq.toml", panel + "plugins = [\"" + (dir_ / "none.so") + "\"]\n" +
                               settings.substr(panel.size()));
  const Ran ran = Run("mailbox add bob@example.org --password-stdin", "");
  EXPECT_EQ(0u, ran.err.find("brisq: warning: plug-in "));
  EXPECT_NE(std::string::npos, ran.err.find("password: must not be empty"));
  EXPECT_EQ(10, ran.status);
}

TEST_F(DoveadmAnswers, ToolsWorkUnderOneUmaskWhateverTheCallersIs) {
  UseDoveadm(support::WriteStub(
      dir_ / "doveadm", "[ \"$1\" = reload ] && umask > '" + (dir_ / "umask") + "'; exit 0"));
  for (const mode_t mask : {mode_t{0}, mode_t{077}}) {
    SCOPED_TRACE(mask);
    const mode_t before = ::umask(mask);
    const Ran ran = Run("reload now");
    ::umask(before);
    EXPECT_EQ(0, ran.status) << ran.err;
    EXPECT_EQ("0022\n", dir_.Read("umask"));
    std::filesystem::remove(dir_ / "umask");
  }
}

}  // namespace
}  // namespace brisq
