#include "brisq/command_line.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

#include "mgr_err.h"

namespace brisq {
namespace {

class CommandLineTest : public testing::Test {
 protected:
  void SetUp() override { unsetenv("BRISQ_CONFIG"); }
  void TearDown() override { unsetenv("BRISQ_CONFIG"); }

  std::optional<CommandLine> Parse(const std::vector<std::string>& words) {
    return ParseCommandLine(words, console_);
  }
  mgr_err::Error ErrorOf(const std::vector<std::string>& words) {
    try {
      Parse(words);
    } catch (const mgr_err::Error& error) {
      return error;
    }
    return mgr_err::Error("accepted");
  }
  std::string Refusal(const std::vector<std::string>& words) { return ErrorOf(words).type(); }

  std::istringstream in_;
  std::ostringstream out_;
  std::ostringstream err_;
  Console console_{in_, out_, err_, false};
};

TEST_F(CommandLineTest, OperandsAndOptionsReachTheCommand) {
  const auto line = Parse({"mailbox", "add", "bob@example.org", "--generate", "--quota", "2G"});
  ASSERT_TRUE(line);
  EXPECT_EQ("mailbox", line->command->noun);
  EXPECT_EQ("add", line->command->verb);
  EXPECT_EQ("bob@example.org", line->arguments.Text("ADDRESS"));
  EXPECT_EQ("2G", line->arguments.Text("--quota"));
  EXPECT_TRUE(line->arguments.Has("--generate"));
  EXPECT_FALSE(line->arguments.Has("--home"));
}

TEST_F(CommandLineTest, GlobalOptionsMayStandAnywhere) {
  for (const auto& words :
       std::vector<std::vector<std::string>>{{"--config", "c.toml", "--json", "owner", "list"},
                                             {"owner", "--json", "list", "--config", "c.toml"},
                                             {"owner", "list", "--json", "--config=c.toml"}}) {
    const auto line = Parse(words);
    ASSERT_TRUE(line);
    EXPECT_EQ("c.toml", line->config);
    EXPECT_TRUE(line->json);
  }
}

TEST_F(CommandLineTest, TheEnvironmentStandsInForTheConfigOption) {
  EXPECT_EQ("/etc/brisq/brisq.toml", Parse({"owner", "list"})->config);
  setenv("BRISQ_CONFIG", "other.toml", 1);
  EXPECT_EQ("other.toml", Parse({"owner", "list"})->config);
  EXPECT_EQ("c.toml", Parse({"owner", "list", "--config", "c.toml"})->config);
}

TEST_F(CommandLineTest, WhatCanNotBeReadIsAUsageError) {
  const std::vector<std::vector<std::string>> cases = {
      {},
      {"nonsense"},
      {"owner"},
      {"owner", "nonsense"},
      {"owner", "add"},
      {"owner", "add", "demo"},
      {"owner", "list", "surplus"},
      {"owner", "list", "--nonsense"},
      {"mailbox", "add", "bob@example.org"},
      {"mailbox", "add", "bob@example.org", "--generate", "--password-stdin"},
      {"mailbox", "add", "bob@example.org", "--generate", "--quota"},
      {"mailbox", "add", "bob@example.org", "--password", "secret"},
  };
  for (const auto& words : cases) {
    SCOPED_TRACE(testing::PrintToString(words));
    EXPECT_EQ("usage", Refusal(words));
  }
}

TEST_F(CommandLineTest, AWordThatFitsNowhereIsNamedAndNothingBehindIt) {
  struct Case {
    const char* name;
    std::vector<std::string> words;
    const char* value;
  };
  const char* const password = "\"--password\" is not known here; see brisq --help";
  const Case cases[] = {
      {"noun", {"nonsense"}, "\"nonsense\" is not known here; see brisq --help"},
      {"verb", {"owner", "rename"}, "\"rename\" is not known here; see brisq --help"},
      {"option", {"mailbox", "add", "a@b.org", "--password", "secret"}, password},
      {"option that asks for nothing", {"owner", "list", "--password=secret"}, password},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.value, ErrorOf(c.words).value());
  }
}

TEST_F(CommandLineTest, TheLongHelpNamesEveryCommand) {
  EXPECT_FALSE(Parse({"--help-all"}));
  for (const Command& command : Commands())
    EXPECT_NE(std::string::npos, out_.str().find(command.summary)) << command.summary;
}

// The parser knows no more of a noun that stands nowhere in the line.
TEST_F(CommandLineTest, TheShortHelpNamesTheVerbsOfEveryNoun) {
  EXPECT_FALSE(Parse({"--help"}));
  const std::string text = out_.str();
  for (const Command& command : Commands()) {
    SCOPED_TRACE(command.noun + " " + command.verb);
    const std::size_t noun = text.find("\n  " + command.noun + " ");
    ASSERT_NE(std::string::npos, noun);
    // Its description ends where the next noun begins, or the text.
    std::size_t end = noun;
    do end = text.find("\n  ", end + 1);
    while (end != std::string::npos && text[end + 3] == ' ');
    EXPECT_NE(std::string::npos, text.substr(noun, end - noun).find(command.verb));
  }
}

TEST_F(CommandLineTest, AWordOfAnotherCommandIsAnOperandAllTheSame) {
  const auto line = Parse({"owner", "show", "mailbox"});
  ASSERT_TRUE(line);
  EXPECT_EQ("owner", line->command->noun);
}

TEST_F(CommandLineTest, TheHelpOfACommandNamesItsOptionsAndWhatItShows) {
  for (const Command& command : Commands()) {
    SCOPED_TRACE(command.noun + " " + command.verb);
    std::vector<std::string> words = {command.noun, command.verb, "--help"};
    if (command.verb.empty()) words.erase(words.begin() + 1);
    out_.str("");
    EXPECT_FALSE(Parse(words));
    for (const Option& option : command.options)
      EXPECT_NE(std::string::npos, out_.str().find(option.name)) << option.name;
    for (const Datum& datum : command.data)
      EXPECT_NE(std::string::npos, out_.str().find("\n  " + datum.name + ": " + datum.help))
          << datum.name;
  }
}

TEST_F(CommandLineTest, HelpOfOneCommandIsNoRun) {
  EXPECT_FALSE(Parse({"mailbox", "add", "--help"}));
  EXPECT_NE(std::string::npos, out_.str().find("--password-stdin"));
}

TEST_F(CommandLineTest, TheVersionIsData) {
  EXPECT_FALSE(Parse({"--version"}));
  EXPECT_EQ(0u, out_.str().rfind("brisq ", 0));
}

TEST_F(CommandLineTest, AnOperandMayBeginWithADashBehindTwoDashes) {
  const auto line = Parse({"owner", "show", "--", "-x"});
  ASSERT_TRUE(line);
  EXPECT_EQ("-x", line->arguments.Text("NAME"));
}

TEST_F(CommandLineTest, EachOperandTakesItsOwnWords) {
  struct Case {
    const char* name;
    std::vector<std::string> words;
    std::vector<std::string> first;
    std::vector<std::string> second;
  };
  const Case cases[] = {
      {"the one that must be", {"action", "run", "a.b"}, {"a.b"}, {}},
      {"and one that may be", {"action", "run", "a.b", "x=1&y=2"}, {"a.b"}, {"x=1&y=2"}},
      {"an option between them", {"action", "run", "a.b", "--dry-run", "x"}, {"a.b"}, {"x"}},
      {"dashes in front", {"action", "run", "--", "a.b", "--x"}, {"a.b"}, {"--x"}},
      {"an empty one", {"action", "run", "a.b", ""}, {"a.b"}, {""}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const auto line = Parse(c.words);
    ASSERT_TRUE(line);
    EXPECT_EQ(c.first, line->arguments.List("NAME"));
    EXPECT_EQ(c.second, line->arguments.List("PARAMS"));
  }
}

// What every command declares is what it takes.
TEST_F(CommandLineTest, EveryCommandTakesItsOperandsAndNoMore) {
  for (const Command& command : Commands()) {
    SCOPED_TRACE(command.noun + " " + command.verb);
    std::vector<std::string> words = {command.noun};
    if (!command.verb.empty()) words.push_back(command.verb);
    if (!command.one_of.empty()) words.push_back(command.one_of.front());
    for (const Option& option : command.options)
      if (option.required) words.insert(words.end(), {option.name, "value"});
    bool many = false;
    for (const Operand& operand : command.operands) {
      words.push_back("of-" + operand.name);
      many = many || operand.many;
    }
    const auto line = Parse(words);
    ASSERT_TRUE(line);
    for (const Operand& operand : command.operands)
      EXPECT_EQ(std::vector<std::string>{"of-" + operand.name}, line->arguments.List(operand.name));
    words.push_back("more");
    EXPECT_EQ(many ? "accepted" : "usage: \"more\" is not known here; see brisq --help",
              std::string(ErrorOf(words).what()));
  }
}

TEST_F(CommandLineTest, AnEmptyValueIsOneAndNotTheNextWord) {
  const auto line = Parse({"mailbox", "set", "--quota=", "a@b.org"});
  ASSERT_TRUE(line);
  EXPECT_TRUE(line->arguments.Has("--quota"));
  EXPECT_EQ("", line->arguments.Text("--quota"));
  EXPECT_EQ("a@b.org", line->arguments.Text("ADDRESS"));
  EXPECT_EQ("--x=", Parse({"owner", "show", "--", "--x="})->arguments.Text("NAME"));
}

TEST_F(CommandLineTest, AnOptionTakesOneValueAndLeavesTheRestToTheOperands) {
  struct Case {
    const char* name;
    std::vector<std::string> words;
    const char* operand;
    std::vector<std::string> values;
  };
  const Case cases[] = {
      {"two dashes behind it", {"domain", "add", "--owner", "demo", "--", "-x"}, "DOMAIN", {"-x"}},
      {"operands behind it",
       {"mailbox", "set", "--quota", "5", "a@b.org", "c@b.org"},
       "ADDRESS",
       {"a@b.org", "c@b.org"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const auto line = Parse(c.words);
    ASSERT_TRUE(line);
    EXPECT_EQ(c.values, line->arguments.List(c.operand));
  }
}

}  // namespace
}  // namespace brisq
