#include "brisq/manual.h"

#include <fmt/format.h>

#include "brisq/command.h"
#include "brisq/exit_codes.h"

namespace brisq {
namespace {

std::string Word(const Option& option) {
  return option.value.empty() ? option.name : option.name + " " + option.value;
}

bool IsOneOf(const Command& command, const Option& option) {
  for (const std::string& name : command.one_of)
    if (name == option.name) return true;
  return false;
}

std::string Choice(const Command& command) {
  std::string names;
  for (const std::string& name : command.one_of) names += (names.empty() ? "" : " | ") + name;
  return names.empty() ? "" : " (" + names + ")";
}

std::string Synopsis(const Command& command) {
  std::string line = "brisq " + command.noun;
  if (!command.verb.empty()) line += " " + command.verb;
  for (const Operand& operand : command.operands) {
    const std::string word = operand.name + (operand.many ? "..." : "");
    line += operand.required ? " " + word : " [" + word + "]";
  }
  line += Choice(command);
  for (const Option& option : command.options) {
    if (IsOneOf(command, option)) continue;
    line += option.required ? " " + Word(option) : " [" + Word(option) + "]";
  }
  return line;
}

std::string Section(const Command& command) {
  std::string text = fmt::format("### `{}`\n\n{}\n", Synopsis(command), command.summary);
  if (!command.operands.empty() || !command.options.empty()) text += "\n";
  for (const Operand& operand : command.operands)
    text += fmt::format("- `{}`: {}\n", operand.name, operand.help);
  for (const Option& option : command.options)
    text += fmt::format("- `{}`: {}\n", Word(option), option.help);
  if (!command.data.empty()) text += "\nIt shows:\n\n";
  for (const Datum& datum : command.data)
    text += fmt::format("- `{}`: {}\n", datum.name, datum.help);
  return text + "\n";
}

std::string ExitCodes() {
  std::string text = "## Exit codes\n\n| code | word | meaning |\n|---|---|---|\n| 0 | | done |\n";
  for (const ErrorKind& kind : ErrorKinds())
    text += fmt::format("| {} | `{}` | {} |\n", kind.exit_code, kind.label, kind.meaning);
  return text;
}

}  // namespace

std::string Manual() {
  std::string text =
      "# Commands of `brisq`\n\n"
      "`brisq [--config FILE] [--json] COMMAND ...`; `$BRISQ_CONFIG` stands in for `--config`, and "
      "`/etc/brisq/brisq.toml` for both.\n"
      "Data goes to standard output, all else to standard error. An error is one line, "
      "`brisq: WORD: THING: REASON`.\n"
      "With `--dry-run` a command does all that it would do for itself alone, says it, and takes "
      "it "
      "back: nobody else sees any of it, Dovecot included, and the exit code is that of the real "
      "run.\n\n";
  for (const Command& command : Commands()) text += Section(command);
  return text + ExitCodes();
}

}  // namespace brisq
