#include <filesystem>
#include <regex>

#include "tests/unit/brisq/commands_fixture.h"

namespace brisq {
namespace {

using nlohmann::json;

TEST_F(CommandsTest, ActionsAreListedAndRun) {
  const json actions = Data("action list");
  ASSERT_EQ(3u, actions.size());
  EXPECT_EQ("dovecot.certs.check", actions[0]["action"]);
  EXPECT_EQ("panel.tls.prune", actions[2]["action"]);
  EXPECT_EQ("0xe0000000", actions[0]["access"]);
  EXPECT_EQ(0, Run("action run dovecot.certs.check").status);
  EXPECT_EQ(4, Run("action run nonsense").status);
}

// Each of them answers differently with them than without.
TEST_F(CommandsTest, ActionsGetTheirParameters) {
  dir_.Write("brisq.toml", std::regex_replace(dir_.Read("brisq.toml"), std::regex("\"true\""),
                                              "\"touch '" + (dir_ / "restarted") + "'\""));
  EXPECT_EQ(0, Run("action run dovecot.reload").status);
  EXPECT_FALSE(std::filesystem::exists(dir_ / "restarted"));
  EXPECT_EQ(0, Run("action run dovecot.reload hard=on").status);
  EXPECT_TRUE(std::filesystem::exists(dir_ / "restarted"));

  EXPECT_EQ("brisq: invalid-input: domain: must not be empty\n",
            Run("action run panel.tls.prune").err);
  EXPECT_EQ("brisq: invalid-input: domain: '/' not allowed\n",
            Run("action run panel.tls.prune domain=../x").err);
  const std::string snippet = dir_ / "certs/example.org.conf";
  dir_.Write("certs/example.org.conf",
             "local_name example.org {\n\tssl_cert = </gone\n\tssl_key = </gone\n}\n");
  EXPECT_EQ(0, Run("action run panel.tls.prune 'domain=example.org&x=1'").status);
  EXPECT_FALSE(std::filesystem::exists(snippet));
}

}  // namespace
}  // namespace brisq
