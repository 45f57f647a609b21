#include "framework/config_file.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <vector>

#include "mgr_cf.h"
#include "mgr_err.h"
#include "tests/support/temp_dir.h"

namespace {

using mgr_cf::ReadSettings;
using mgr_cf::Settings;
using support::TempDir;

// Object and value of the "config" error, the folder's path left out of it.
std::string ErrorOf(const TempDir& dir, const std::string& content) {
  try {
    ReadSettings(dir.Write("brisq.toml", content));
  } catch (const mgr_err::Error& error) {
    EXPECT_EQ("config", error.type());
    EXPECT_EQ(0U, error.object().find(dir / "brisq.toml:")) << error.object();
    return error.object().substr(dir.path().size() + 1) + ": " + error.value();
  }
  return "no error";
}

TEST(ConfigFile, EmptyFileGivesTheDefaultsBesideIt) {
  const TempDir dir;
  const Settings settings = ReadSettings(dir.Write("brisq.toml", ""));

  EXPECT_EQ(dir / "brisq.toml", settings.file);
  EXPECT_EQ(dir / "state/panel.db", settings.database);
  EXPECT_EQ(dir / "state", settings.state);
  EXPECT_TRUE(settings.plugins.empty());
  EXPECT_EQ(dir / "log", settings.log_directory);
  EXPECT_EQ(4, settings.log_level);
  EXPECT_TRUE(settings.log_levels.empty());
  EXPECT_EQ(16, settings.log_rotate_mb);
  EXPECT_EQ(5, settings.log_keep);
  EXPECT_TRUE(settings.params.empty());
  EXPECT_TRUE(settings.paths.empty());
}

TEST(ConfigFile, EverySettingIsRead) {
  const TempDir dir;
  const Settings settings = ReadSettings(dir.Write("brisq.toml", R"(
[panel]
database = "data/panel.db"     # a comment
state    = "/var/lib/brisq"
plugins  = ["lib/brisq", "/usr/lib/brisq/email_dovecot.so"]
[log]
directory = "logs"
level     = 3
rotate_mb = 1
keep      = 0
email     = 9
"with blank" = 6
[param]
POP3 = "dovecot"
EmailAuth = ""
[path]
dovecot-passwd = "etc/passwd"
"dovecot-restart" = "service dovecot restart"
)"));

  EXPECT_EQ(dir / "data/panel.db", settings.database);
  EXPECT_EQ("/var/lib/brisq", settings.state);
  EXPECT_EQ((std::vector<std::string>{dir / "lib/brisq", "/usr/lib/brisq/email_dovecot.so"}),
            settings.plugins);
  EXPECT_EQ(dir / "logs", settings.log_directory);
  EXPECT_EQ(3, settings.log_level);
  EXPECT_EQ(1, settings.log_rotate_mb);
  EXPECT_EQ(0, settings.log_keep);
  EXPECT_EQ((std::map<std::string, int>{{"email", 9}, {"with blank", 6}}), settings.log_levels);
  EXPECT_EQ((std::map<std::string, std::string>{{"POP3", "dovecot"}, {"EmailAuth", ""}}),
            settings.params);
  EXPECT_TRUE(settings.param_places.at("POP3").starts_with(dir / "brisq.toml:"));
  EXPECT_TRUE(settings.path_places.at("dovecot-passwd").starts_with(dir / "brisq.toml:"));
  EXPECT_TRUE(settings.level_places.at("email").starts_with(dir / "brisq.toml:"));
  EXPECT_EQ((std::map<std::string, std::string>{{"dovecot-passwd", "etc/passwd"},
                                                {"dovecot-restart", "service dovecot restart"}}),
            settings.paths);
}

TEST(ConfigFile, PathsAreNormalised) {
  const TempDir dir;
  const Settings settings = ReadSettings(
      dir.Write("etc/brisq.toml", "[panel]\nstate = \"../state/./keys\"\nplugins = [\"a//b\"]\n"));

  EXPECT_EQ(dir / "state/keys", settings.state);
  EXPECT_EQ(std::vector<std::string>{dir / "etc/a/b"}, settings.plugins);
  EXPECT_EQ(dir / "etc/log", settings.log_directory);
}

TEST(ConfigFile, RelativeNameOfTheFileIsMadeAbsolute) {
  const TempDir dir;
  dir.Write("brisq.toml", "");
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(dir.path());
  const Settings settings = ReadSettings("brisq.toml");
  std::filesystem::current_path(before);

  EXPECT_EQ(dir / "brisq.toml", settings.file);
  EXPECT_EQ(dir / "state", settings.state);
}

struct BadFile {
  const char* name;
  std::string content;
  std::string error;
};

void ExpectErrors(const std::vector<BadFile>& cases) {
  const TempDir dir;
  for (const BadFile& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ("brisq.toml:" + c.error, ErrorOf(dir, c.content));
  }
}

TEST(ConfigFile, RefusesWrongTypesWithTheirLine) {
  ExpectErrors({
      {"database", "[panel]\n\ndatabase = 5", "3: \"database\" must be a string"},
      {"state", "[panel]\nstate = [\"a\"]", "2: \"state\" must be a string"},
      {"plugins", "[panel]\nplugins = \"lib\"", "2: \"plugins\" must be an array of strings"},
      {"one plugin", "[panel]\nplugins = [\n\"a\",\n7]", "4: \"plugins\" must be a string"},
      {"log directory", "[log]\ndirectory = true", "2: \"directory\" must be a string"},
      {"level as text", "[log]\nlevel = \"4\"", "2: \"level\" must be an integer from 0 to 9"},
      {"level with a point", "[log]\nlevel = 4.0", "2: \"level\" must be an integer from 0 to 9"},
      {"level of a module", "[log]\n# x\nemail = \"9\"",
       "3: \"email\" must be an integer from 0 to 9"},
      {"level of a module as truth", "[log]\nemail = true",
       "2: \"email\" must be an integer from 0 to 9"},
      {"rotate_mb", "[log]\nrotate_mb = \"1\"",
       "2: \"rotate_mb\" must be an integer from 1 to 4096"},
      {"keep", "[log]\nkeep = 1.5", "2: \"keep\" must be an integer from 0 to 1000"},
      {"number as param", "[param]\nPOP3 = \"dovecot\"\nDovecotCheckPeriod = 5",
       "3: \"DovecotCheckPeriod\" must be a string"},
      {"truth as param", "[param]\nA = false", "2: \"A\" must be a string"},
      {"date as param", "[param]\nA = 2024-01-02", "2: \"A\" must be a string"},
      {"list as param", "[param]\nA = []", "2: \"A\" must be a string"},
      {"table as param", "[param.A]\nx = \"1\"", "1: \"A\" must be a string"},
      {"number as path", "[path]\na = 0", "2: \"a\" must be a string"},
      {"inline table as path", "[path]\na = { b = \"c\" }", "2: \"a\" must be a string"},
      {"dotted path", "[path]\na.b = \"c\"", "2: \"a\" must be a string"},
      {"panel is text", "panel = \"x\"", "1: \"panel\" must be a table"},
      {"log is a list of tables", "\n[[log]]\nlevel = 4", "2: \"log\" must be a table"},
      {"param is a number", "\n\nparam = 1", "3: \"param\" must be a table"},
      {"path is a list", "path = []", "1: \"path\" must be a table"},
  });
}

TEST(ConfigFile, RefusesValuesOutOfTheirRange) {
  ExpectErrors({
      {"level below", "[log]\nlevel = -1", "2: \"level\" must be an integer from 0 to 9"},
      {"level above", "[log]\nlevel = 10", "2: \"level\" must be an integer from 0 to 9"},
      {"level beyond 32 bits", "[log]\nlevel = 4294967300",
       "2: \"level\" must be an integer from 0 to 9"},
      {"module above", "[log]\nemail = 10", "2: \"email\" must be an integer from 0 to 9"},
      {"no rotation", "[log]\nrotate_mb = 0", "2: \"rotate_mb\" must be an integer from 1 to 4096"},
      {"keep above", "[log]\nkeep = 1001", "2: \"keep\" must be an integer from 0 to 1000"},
      {"empty database", "[panel]\ndatabase = \"\"",
       "2: \"database\" must be the path of a file or folder"},
      {"empty state", "[panel]\nstate = \"\"", "2: \"state\" must be the path of a file or folder"},
      {"empty log directory", "[log]\ndirectory = \"\"",
       "2: \"directory\" must be the path of a file or folder"},
      {"empty plugin", "[panel]\nplugins = [\"\"]",
       "2: \"plugins\" must be the path of a file or folder"},
      {"NUL in a path", "[panel]\nstate = \"a\\u0000b\"",
       "2: \"state\" must be the path of a file or folder"},
  });
}

TEST(ConfigFile, RefusesUnknownNamesWithTheirLine) {
  const std::string tables = "is not known: the tables are [log], [panel], [param] and [path]";
  const std::string keys = "is not known in [panel]: the keys are database, plugins and state";
  ExpectErrors({
      {"key in [panel]", "[panel]\nstate = \"s\"\ndatabse = \"x\"", "3: \"databse\" " + keys},
      {"other case", "[panel]\nDatabase = \"x\"", "2: \"Database\" " + keys},
      {"table below [panel]", "[panel]\n[panel.db]\nx = 1", "2: \"db\" " + keys},
      {"table", "[param]\n\n[parm]\nPOP3 = \"dovecot\"", "3: [parm] " + tables},
      {"table of other case", "[Panel]", "1: [Panel] " + tables},
      {"key outside of a table", "POP3 = \"dovecot\"", "1: [POP3] " + tables},
  });
}

TEST(ConfigFile, RefusesWhatIsNoTomlWithItsLine) {
  const TempDir dir;
  struct Case {
    const char* name;
    std::string content;
    std::string place;
  };
  const std::vector<Case> cases = {
      {"no value", "[panel]\nstate =\n", "brisq.toml:2: "},
      {"open string", "[panel]\nstate = \"x\n", "brisq.toml:2: "},
      {"table without a name", "[param]\n[ = 1]\n", "brisq.toml:2: "},
      {"letter of another script as key", "[param]\n\xc3\xbc = \"1\"\n", "brisq.toml:2: "},
      {"white space of another script",
       "[param]\n\xe2\x80\x83"
       "A = \"1\"\n",
       "brisq.toml:2: "},
      {"key twice", "[param]\nA = \"1\"\nA = \"2\"\n", "brisq.toml:3: "},
      {"table twice", "[param]\n[path]\n[param]\n", "brisq.toml:3: "},
      {"no UTF-8", "[param]\nA = \"\xff\"\n", "brisq.toml:2: "},
      {"control character", std::string("[param]\nA = \"\x01\"\n"), "brisq.toml:2: "},
      {"binary",
       std::string("\x7f"
                   "ELF\0\0",
                   6),
       "brisq.toml:1: "},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string error = ErrorOf(dir, c.content);
    EXPECT_EQ(0U, error.find(c.place)) << error;
    EXPECT_LT(c.place.size(), error.size()) << "must say what is wrong";
    EXPECT_EQ(std::string::npos, error.find('\n')) << error;
  }
}

TEST(ConfigFile, KeepsTextOfAnyScript) {
  const TempDir dir;
  const Settings settings = ReadSettings(dir.Write("brisq.toml",
                                                   "[param]  # \xc3\xbc\n"
                                                   "Name = \"\xc3\xbc\xd0\xb6\xe2\x82\xac\"\n"
                                                   "\"\xc3\xbc\" = \"\"\"a\\\n  \xc3\xbc\"\"\"\n"));
  EXPECT_EQ("\xc3\xbc\xd0\xb6\xe2\x82\xac", settings.params.at("Name"));
  EXPECT_EQ("a\xc3\xbc", settings.params.at("\xc3\xbc"));
}

TEST(ConfigFile, NamesAFileThatCannotBeRead) {
  const TempDir dir;
  struct Case {
    const char* name;
    std::string file;
    std::string text;
  };
  const std::vector<Case> cases = {
      {"missing", dir / "none.toml",
       "config: " + dir / "none.toml: open: No such file or directory"},
      {"folder", dir.path(), "config: " + dir.path() + ": not a regular file"},
      {"no name", "", "config: no file is named"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    try {
      ReadSettings(c.file);
      ADD_FAILURE() << "no error";
    } catch (const mgr_err::Error& error) {
      EXPECT_EQ(c.text, error.what());
    }
  }
}

// Who can change it can have any library loaded.
TEST(ConfigFile, AFileThatOthersMayChangeIsRefused) {
  const TempDir dir;
  const std::string file = dir.Write("brisq.toml", "");
  std::filesystem::permissions(file, std::filesystem::perms(0666));
  try {
    ReadSettings(file);
    ADD_FAILURE() << "no error";
  } catch (const mgr_err::Error& error) {
    EXPECT_EQ("config", error.type());
    EXPECT_EQ(file, error.object());
    EXPECT_TRUE(error.value().starts_with("not safe: " + file + " is writable by other users"));
  }
  std::filesystem::permissions(file, std::filesystem::perms(0664));
  EXPECT_EQ(file, ReadSettings(file).file);
}

// A file that somebody is just writing may end anywhere.
TEST(ConfigFile, EveryPrefixIsReadOrRefusedCleanly) {
  const TempDir dir;
  const std::string whole =
      "[panel]\ndatabase = \"state/panel.db\"\nplugins = [\"a\", 'b']\n[log]\nlevel = 4\n"
      "[param]\nPOP3 = \"dovecot\"\n[path]\n\"dovecot-passwd\" = \"\"\"/etc/x\"\"\"\n";
  for (std::size_t cut = 0; cut <= whole.size(); ++cut) {
    SCOPED_TRACE("cut after byte " + std::to_string(cut));
    EXPECT_NO_FATAL_FAILURE(ErrorOf(dir, whole.substr(0, cut)));
  }
  EXPECT_EQ("no error", ErrorOf(dir, whole));
}

TEST(ConfigFile, ReadingSetsNothing) {
  const TempDir dir;
  mgr_cf::Reset();
  const Settings settings = ReadSettings(dir.Write("brisq.toml", "[param]\nPOP3 = \"dovecot\"\n"));
  EXPECT_EQ("dovecot", settings.params.at("POP3"));
  EXPECT_EQ("", mgr_cf::GetParam("POP3"));
}

}  // namespace
