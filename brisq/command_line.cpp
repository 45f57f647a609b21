#include "brisq/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <map>
#include <ostream>

#include "mgr_err.h"

namespace brisq {
namespace {

constexpr const char* kDefaultConfig = "/etc/brisq/brisq.toml";

// The parser's own copy of one command: where it stores what it reads.
struct Bound {
  const Command* command;
  CLI::App* app;
  std::map<std::string, std::vector<std::string>> values;
  std::map<std::string, bool> flags;
};

void BindOperand(Bound& bound, const Operand& operand) {
  CLI::Option* option =
      bound.app->add_option(operand.name, bound.values[operand.name], operand.help);
  option->required(operand.required)->type_name("");
  option->expected(1, operand.many ? CLI::detail::expected_max_vector_size : 1);
  // Else it takes what is meant for the next operand, and has one too many then.
  option->allow_extra_args(operand.many);
}

void BindOption(Bound& bound, const Option& option) {
  if (option.value.empty()) {
    bound.app->add_flag(option.name, bound.flags[option.name], option.help);
    return;
  }
  bound.app->add_option(option.name, bound.values[option.name], option.help)
      ->required(option.required)
      ->expected(1)
      // Else a list takes what follows its value too, "--" or an operand.
      ->allow_extra_args(false)
      ->type_name(option.value);
}

CLI::App* NounOf(CLI::App& root, const Command& command) {
  for (CLI::App* known : root.get_subcommands({}))
    if (known->get_name() == command.noun) return known;
  CLI::App* noun = root.add_subcommand(command.noun, command.verb.empty() ? command.summary : "");
  noun->fallthrough();
  if (!command.verb.empty()) noun->require_subcommand(1);
  return noun;
}

std::string WhatItShows(const Command& command) {
  std::string text;
  for (const Datum& datum : command.data) text += "\n  " + datum.name + ": " + datum.help;
  return text.empty() ? text : "Shows:" + text;
}

void Bind(CLI::App& root, Bound& bound) {
  const Command& command = *bound.command;
  bound.app = NounOf(root, command);
  if (!command.verb.empty()) {
    bound.app = bound.app->add_subcommand(command.verb, command.summary);
    bound.app->fallthrough();
  }
  for (const Operand& operand : command.operands) BindOperand(bound, operand);
  for (const Option& option : command.options) BindOption(bound, option);
  bound.app->footer(WhatItShows(command));
}

void DescribeNouns(CLI::App& root) {
  std::map<std::string, std::string> verbs;
  for (const Command& command : Commands()) {
    std::string& known = verbs[command.noun];
    known += (known.empty() ? "" : ", ") + command.verb;
  }
  for (CLI::App* noun : root.get_subcommands({}))
    if (!verbs[noun->get_name()].empty()) noun->description(verbs[noun->get_name()]);
}

// The commands that the words can mean; the parser need not know more of the others than their
// nouns, and telling it all of them takes longer than reading the words.
bool CanMean(const std::vector<std::string>& words, const Command& command) {
  const auto has = [&](const std::string& word) {
    return std::find(words.begin(), words.end(), word) != words.end();
  };
  return has(command.noun) || has("--help-all");
}

Arguments ArgumentsOf(const Bound& bound) {
  Arguments arguments;
  for (const auto& [name, values] : bound.values)
    for (const std::string& value : values) arguments.Add(name, value);
  for (const auto& [name, given] : bound.flags)
    if (given) arguments.Add(name, "");
  return arguments;
}

void CheckOneOf(const Command& command, const Arguments& arguments) {
  if (command.one_of.empty()) return;
  std::string names;
  int given = 0;
  for (const std::string& name : command.one_of) {
    names += (names.empty() ? "" : ", ") + name;
    given += arguments.Has(name) ? 1 : 0;
  }
  if (given != 1)
    throw mgr_err::Error("usage", command.noun + " " + command.verb,
                         "exactly one of " + names + " is required");
}

std::string ConfigFile(const std::string& option) {
  if (!option.empty()) return option;
  const char* environment = std::getenv("BRISQ_CONFIG");
  return environment && *environment ? environment : kDefaultConfig;
}

// Names the first word that fits nowhere: it is why a command seems to be missing, and what follows
// it may be a secret that was meant for an option.
std::string Complaint(const CLI::App& root, const CLI::ParseError& error) {
  const std::vector<std::string> unknown = root.remaining(true);
  if (unknown.empty()) return error.what();
  const std::string& word = unknown.front();
  const std::string named = word.starts_with('-') ? word.substr(0, word.find('=')) : word;
  return "\"" + named + "\" is not known here";
}

// The parser takes the next word for the value of "--option=", which is an empty one.
std::vector<std::string> WithEmptyValues(const std::vector<std::string>& words) {
  std::vector<std::string> split;
  bool operands = false;
  for (const std::string& word : words) {
    operands = operands || word == "--";
    const bool empty = !operands && word.starts_with("--") && word.find('=') == word.size() - 1;
    split.push_back(empty ? word.substr(0, word.size() - 1) : word);
    if (empty) split.emplace_back();
  }
  return split;
}

// True when the words were a question that has been answered.
bool Parse(CLI::App& root, const std::vector<std::string>& words, const Console& console) {
  try {
    std::vector<std::string> from_back = WithEmptyValues(words);
    std::reverse(from_back.begin(), from_back.end());
    root.parse(std::move(from_back));
    return false;
  } catch (const CLI::CallForHelp&) {
    console.out << root.help();
  } catch (const CLI::CallForAllHelp&) {
    console.out << root.help("", CLI::AppFormatMode::All);
  } catch (const CLI::CallForVersion&) {
    console.out << "brisq " BRISQ_VERSION "\n";
  } catch (const CLI::ParseError& error) {
    throw mgr_err::Error("usage", "", Complaint(root, error) + "; see brisq --help");
  }
  return true;
}

}  // namespace

std::optional<CommandLine> ParseCommandLine(const std::vector<std::string>& words,
                                            const Console& console) {
  CLI::App root("Mailboxes for Dovecot: owners, domains, mailboxes, certificates.", "brisq");
  CommandLine line;
  std::string config;
  root.add_option("--config", config, "configuration file, else $BRISQ_CONFIG")->type_name("FILE");
  root.add_flag("--json", line.json, "data as JSON");
  root.set_version_flag("--version", BRISQ_VERSION);
  root.set_help_all_flag("--help-all", "help of all commands");
  root.require_subcommand(1);

  std::vector<Bound> bounds;
  for (const Command& command : Commands()) bounds.push_back({&command, nullptr, {}, {}});
  for (Bound& bound : bounds) {
    NounOf(root, *bound.command);
    if (CanMean(words, *bound.command)) Bind(root, bound);
  }
  DescribeNouns(root);
  if (Parse(root, words, console)) return std::nullopt;

  for (const Bound& bound : bounds)
    if (bound.app != nullptr && bound.app->parsed()) {
      line.command = bound.command;
      line.arguments = ArgumentsOf(bound);
    }
  CheckOneOf(*line.command, line.arguments);
  line.config = ConfigFile(config);
  return line;
}

}  // namespace brisq
