#include "panel/known_settings.h"

#include <gmock/gmock.h>

#include <regex>

#include "mgr_cf.h"
#include "mgr_log.h"
#include "tests/support/places.h"
#include "tests/support/temp_dir.h"

namespace {

using brisq_panel::UnknownSettings;
using testing::ElementsAre;
using testing::IsEmpty;

class KnownSettings : public testing::Test {
 protected:
  KnownSettings() { mgr_cf::Reset(); }
  ~KnownSettings() override { mgr_cf::Reset(); }

  // Without the name of the folder.
  std::vector<std::string> Lines(const std::string& content) {
    std::vector<std::string> lines =
        UnknownSettings(mgr_cf::ReadSettings(dir_.Write("b.toml", content)));
    for (std::string& line : lines) {
      EXPECT_TRUE(line.starts_with(dir_ / "b.toml:")) << line;
      line.erase(0, dir_.path().size() + 1);
    }
    return lines;
  }

  support::TempDir dir_;
};

TEST_F(KnownSettings, ASlipIsToldWithItsPlaceAndTheKeyThatMayBeMeant) {
  const struct {
    const char* name;
    const char* content;
    const char* line;
  } cases[] = {
      {"a letter left out", "[param]\n\nDovecotPwSheme = \"x\"",
       "b.toml:3: \"DovecotPwSheme\" is not known in [param] and changes nothing: did you mean "
       "\"DovecotPwScheme\"?"},
      {"other case", "[param]\npop3 = \"dovecot\"",
       "b.toml:2: \"pop3\" is not known in [param] and changes nothing: did you mean \"POP3\"?"},
      {"a letter doubled", "[path]\ndovecot-passswd = \"x\"",
       "b.toml:2: \"dovecot-passswd\" is not known in [path] and changes nothing: did you mean "
       "\"dovecot-passwd\"?"},
      {"another sign", "[path]\n# x\n# y\ndovecot_certconf = \"x\"",
       "b.toml:4: \"dovecot_certconf\" is not known in [path] and changes nothing: did you mean "
       "\"dovecot-certconf\"?"},
      {"a path among the parameters", "[param]\ndovecot-passwd = \"x\"",
       "b.toml:2: \"dovecot-passwd\" is not known in [param] and changes nothing: it belongs into "
       "[path]"},
      {"a parameter among the paths", "[path]\nEmailAuth = \"dovecot\"",
       "b.toml:2: \"EmailAuth\" is not known in [path] and changes nothing: it belongs into "
       "[param]"},
      {"a level of no module", "[log]\nemial = 9",
       "b.toml:2: \"emial\" is not known in [log] and changes nothing: did you mean \"email\"?"},
      {"no key of the log", "[log]\nkep = 3",
       "b.toml:2: \"kep\" is not known in [log] and changes nothing: did you mean \"keep\"?"},
      {"nothing like it", "[param]\nColour = \"blue\"",
       "b.toml:2: \"Colour\" is not known in [param] and changes nothing"},
      {"an empty key", "[path]\n\"\" = \"\"",
       "b.toml:2: \"\" is not known in [path] and changes nothing"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_THAT(Lines(c.content), ElementsAre(c.line));
  }
}

TEST_F(KnownSettings, EachUnknownKeyHasItsLine) {
  EXPECT_THAT(
      Lines("[path]\nb = \"\"\n[param]\nPOP3 = \"x\"\nB = \"\"\nA = \"\"\n"),
      ElementsAre(testing::StartsWith("b.toml:6: \"A\""), testing::StartsWith("b.toml:5: \"B\""),
                  testing::StartsWith("b.toml:2: \"b\"")));
}

TEST_F(KnownSettings, WhatAPluginDeclaresIsKnown) {
  const std::string content = "[param]\nGreeting = \"x\"\n[path]\ngreeting-file = \"x\"\n";
  EXPECT_EQ(2u, Lines(content).size());
  mgr_cf::AddParam("Greeting", "");
  mgr_cf::SetPathDefault("greeting-file", "/etc/greeting");
  EXPECT_THAT(Lines(content), IsEmpty());
}

TEST_F(KnownSettings, AModuleIsKnownAsLongAsItExists) {
  const std::string content = "[log]\nlevel = 4\nknown_settings_test = 9\n";
  EXPECT_EQ(1u, Lines(content).size());
  {
    const mgr_log::Module module("known_settings_test", "test");
    EXPECT_THAT(Lines(content), IsEmpty());
  }
  EXPECT_EQ(1u, Lines(content).size());
}

// The page for administrators explains each of them in a row of its own.
TEST_F(KnownSettings, EveryDocumentedKeyIsKnown) {
  const std::string page = support::ReadFile(support::SourceFolder() + "/docs/operate/settings.md");
  std::size_t keys = 0;
  for (const char* table : {"param", "path"}) {
    const std::size_t from = page.find("## [" + std::string(table) + "]");
    ASSERT_NE(std::string::npos, from);
    const std::string rows = page.substr(from, page.find("\n## ", from + 1) - from);
    std::string content = "[" + std::string(table) + "]\n";
    const std::regex row("\n\\| `([^`]+)` \\|");
    for (std::sregex_iterator at(rows.begin(), rows.end(), row), end; at != end; ++at, ++keys) {
      content += (*at)[1].str() + " = \"\"\n";
    }
    EXPECT_THAT(Lines(content), IsEmpty());
  }
  EXPECT_EQ(17u, keys);
}

}  // namespace
