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
