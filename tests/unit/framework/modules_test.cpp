#include "framework/modules.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "mgr_err.h"
#include "tests/support/places.h"
#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using brisq_api::BuildModules;
using brisq_api::LoadPlugins;
using brisq_api::PluginReport;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;

constexpr char kCategory[] = "test_plugins";

std::string Fixture(const std::string& name) {
  return support::TestPluginFolder() + "/" + name + ".so";
}

// A plug-in stays loaded until the process ends, so each test loads a copy of its own.
class ModulesTest : public testing::Test {
 protected:
  // What an earlier test has loaded is built by now.
  ModulesTest() { BuildModules(kCategory); }

  std::string CopyOf(const std::string& name, const std::string& as) const {
    fs::copy_file(Fixture(name), directory / as);
    return directory / as;
  }

  support::TempDir directory;
};

// One that has ended but was not collected counts too.
bool HasChild() {
  siginfo_t status = {};
  return ::waitid(P_ALL, 0, &status, WEXITED | WNOHANG | WNOWAIT) == 0;
}

std::string ErrorOf(const std::string& file) {
  const std::vector<PluginReport> reports = LoadPlugins({file});
  EXPECT_EQ(1U, reports.size());
  EXPECT_EQ(file, reports.front().file);
  return reports.front().error;
}

TEST_F(ModulesTest, AGoodPluginIsLoadedAndItsModuleBuilt) {
  const std::string file = CopyOf("good_module", "good.so");
  EXPECT_EQ("", ErrorOf(file));
  const std::vector<PluginReport> built = BuildModules(kCategory);
  ASSERT_EQ(1U, built.size());
  EXPECT_EQ(file, built.front().file);
  EXPECT_EQ("", built.front().error);
  EXPECT_THAT(brisq_api::Modules(), Contains("test_good"));
}

TEST_F(ModulesTest, ABrokenPluginIsReportedAndTheHostLives) {
  struct Case {
    const char* name;
    const char* error;
  };
  const Case cases[] = {
      {"throws_at_load", "throws an exception that nobody catches: no licence"},
      {"aborts_at_load", "ends the process by signal 6 \\(Aborted\\)"},
      {"missing_symbol",
       "undefined symbol: [A-Za-z0-9_]+ \\(brisq_api::FunctionOfANewerHost\\(\\)\\)"},
      {"no_plugin", "is no plug-in: it registers no module"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string file = CopyOf(c.name, std::string(c.name) + ".so");
    EXPECT_THAT(ErrorOf(file), MatchesRegex(c.error));
    EXPECT_EQ(nullptr, ::dlopen(file.c_str(), RTLD_NOW | RTLD_NOLOAD)) << "it is still loaded";
    EXPECT_THAT(BuildModules(kCategory), IsEmpty());
  }
}

// A plug-in that stops in the middle must not leave the loader's lock taken.
TEST_F(ModulesTest, OtherThreadsCanLoadLibrariesAfterABrokenPlugin) {
  ErrorOf(CopyOf("throws_at_load", "throws.so"));
  const std::string library = CopyOf("no_plugin", "other.so");
  std::thread([&library] {
    void* handle = ::dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    EXPECT_NE(nullptr, handle);
    ::dlclose(handle);
  }).join();
}

TEST_F(ModulesTest, WhatIsNoLibraryIsReported) {
  struct Case {
    const char* name;
    std::string file;
    const char* error;
  };
  const std::string library = support::ReadFile(Fixture("good_module"));
  const Case cases[] = {
      {"missing", directory / "none.so", "cannot open shared object file"},
      {"text", directory.Write("text.so", std::string(10000, 'x')), "invalid ELF header"},
      {"empty", directory.Write("empty.so", ""), "file too short"},
      {"cut short", directory.Write("cut.so", library.substr(0, 100)), "cannot read file data"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_THAT(ErrorOf(c.file), HasSubstr(c.error));
    EXPECT_THAT(ErrorOf(c.file), Not(HasSubstr(c.file))) << "the report has the file apart";
  }
}

TEST_F(ModulesTest, AFileLoadedTwiceIsReported) {
  const std::string file = CopyOf("throws_in_constructor", "twice.so");
  fs::create_symlink(file, directory / "link.so");
  EXPECT_EQ("", ErrorOf(file));
  EXPECT_EQ("is loaded already", ErrorOf(file));
  EXPECT_EQ("is loaded already", ErrorOf(directory / "link.so"));
  EXPECT_EQ("is loaded already", ErrorOf(directory / "./twice.so"));
  EXPECT_EQ(1U, BuildModules(kCategory).size());
}

TEST_F(ModulesTest, ASecondModuleOfOneNameIsReportedWithItsFile) {
  const std::string first = CopyOf("throws_in_constructor", "first.so");
  const std::string second = CopyOf("throws_in_constructor", "second.so");
  LoadPlugins({first, second});
  const std::vector<PluginReport> built = BuildModules(kCategory);
  ASSERT_EQ(2U, built.size());
  EXPECT_EQ(second, built[1].file);
  EXPECT_EQ("its module constructor threw: config: POP3: not for this plug-in", built[1].error);
  EXPECT_THAT(brisq_api::Modules(), Not(Contains("test_throws")));
}

TEST_F(ModulesTest, AFolderStandsForItsLibrariesInNameOrder) {
  CopyOf("no_plugin", "b.so");
  CopyOf("no_plugin", "a.so");
  CopyOf("no_plugin", "c.so.old");
  directory.Write("readme.txt", "");
  directory.MakeFolder("sub");
  const std::vector<PluginReport> reports = LoadPlugins({directory.path()});
  ASSERT_EQ(2U, reports.size());
  EXPECT_EQ(directory / "a.so", reports[0].file);
  EXPECT_EQ(directory / "b.so", reports[1].file);
}

// Who can change a library is whatever this process is.
TEST_F(ModulesTest, OneThatOthersMayChangeIsRefusedBeforeAnyIsTried) {
  const std::string good = CopyOf("good_module", "first.so");
  const std::string open = CopyOf("good_module", "open.so");
  fs::permissions(open, fs::perms(0666));
  for (const std::vector<std::string>& files :
       {std::vector<std::string>{good, open}, std::vector<std::string>{directory.path()}}) {
    try {
      const brisq_api::PluginLoading loading(files);
      ADD_FAILURE() << "no error";
    } catch (const mgr_err::Error& error) {
      EXPECT_EQ("config", error.type());
      EXPECT_EQ(open, error.object());
    }
    EXPECT_FALSE(HasChild());
    EXPECT_EQ(nullptr, ::dlopen(good.c_str(), RTLD_NOW | RTLD_NOLOAD));
  }
}

TEST_F(ModulesTest, WhatIsOnlyBegunLoadsNothing) {
  const std::string file = CopyOf("good_module", "begun.so");
  { const brisq_api::PluginLoading loading({file}); }
  EXPECT_EQ(nullptr, ::dlopen(file.c_str(), RTLD_NOW | RTLD_NOLOAD));
  EXPECT_THAT(BuildModules(kCategory), IsEmpty());
}

TEST_F(ModulesTest, TheFirstIsTriedWhileTheCallerGoesOn) {
  const std::string good = CopyOf("good_module", "good.so");
  brisq_api::PluginLoading loading({directory.MakeFolder("empty"), good});
  EXPECT_TRUE(HasChild());
  const std::vector<PluginReport> reports = loading.Load();
  ASSERT_EQ(1U, reports.size());
  EXPECT_EQ(good, reports[0].file);
  EXPECT_EQ("", reports[0].error);
  EXPECT_FALSE(HasChild());
}

TEST_F(ModulesTest, AFileThatIsReplacedAfterItsTrialIsTriedAnew) {
  struct Case {
    const char* name;
    const char* before;
    const char* after;  // null when it is removed
    const char* error;
  };
  const Case cases[] = {
      {"a sound one comes", "aborts_at_load", "throws_in_constructor", ""},
      {"a bad one comes", "throws_in_constructor", "aborts_at_load", "signal 6"},
      {"none is left", "throws_in_constructor", nullptr, "No such file"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string file = CopyOf(c.before, std::string(c.before) + c.error + ".so");
    brisq_api::PluginLoading loading({file});
    if (c.after == nullptr) {
      fs::remove(file);
    } else {
      fs::rename(CopyOf(c.after, "other"), file);
    }
    const std::string error = loading.Load().at(0).error;
    EXPECT_TRUE(c.error[0] == '\0' ? error.empty() : error.find(c.error) != std::string::npos)
        << error;
  }
}

TEST_F(ModulesTest, ABadPluginDoesNotStopTheNext) {
  const std::string good = CopyOf("throws_in_constructor", "after.so");
  const std::vector<PluginReport> reports =
      LoadPlugins({CopyOf("aborts_at_load", "before.so"), good, directory / "none.so"});
  ASSERT_EQ(3U, reports.size());
  EXPECT_NE("", reports[0].error);
  EXPECT_EQ("", reports[1].error);
  EXPECT_NE("", reports[2].error);
}

TEST_F(ModulesTest, ARelativePathIsOneOfTheWorkingDirectory) {
  CopyOf("throws_in_constructor", "relative.so");
  const fs::path before = fs::current_path();
  fs::current_path(directory.path());
  EXPECT_EQ("", ErrorOf("relative.so"));
  fs::current_path(before);
}

}  // namespace
