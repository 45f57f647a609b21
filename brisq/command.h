#pragma once

#include <functional>
#include <iosfwd>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "brisq/given_password.h"
#include "panel/hash_ahead.h"

namespace brisq {

class Output;

/// Where a command reads and writes; the streams must outlive it.
struct Console {
  std::istream& in;
  std::ostream& out;
  std::ostream& err;
  /// True when `in` is a terminal that can be asked.
  bool interactive = false;
};

/// What the command line said, by the names in the command's declaration.
class Arguments {
 public:
  void Add(const std::string& name, std::string value) {
    values_[name].push_back(std::move(value));
  }
  bool Has(const std::string& name) const { return values_.count(name) != 0; }
  /// The value, the first one of several; empty when it was not given.
  std::string Text(const std::string& name) const;
  std::vector<std::string> List(const std::string& name) const;

 private:
  std::map<std::string, std::vector<std::string>> values_;
};

/// One run of a command.
struct Call {
  const Arguments& arguments;
  Output& output;
  const Console& console;
  /// The configuration file.
  std::string config = {};
  /// What the program ends with after the data has been written.
  int exit_code = 0;
  /// False when the run has only looked: reloads that others have left are not waited for.
  bool run_due = true;
  /// What `begin` has left for `run`: the password that is to be set, and a run of the tool that
  /// makes its hash, which ends when `run` has come to its end. Null for none.
  std::unique_ptr<GivenPassword> password = {};
  std::unique_ptr<brisq_panel::BegunHash> hash = {};
};

struct Operand {
  std::string name;  ///< in capitals, as the help shows it
  std::string help;
  bool many = false;
  bool required = true;
};

struct Option {
  std::string name;   ///< with its dashes
  std::string value;  ///< placeholder of the value; empty for a flag
  std::string help;
  bool required = false;
};

/// A name in a command's data whose meaning is to be told.
struct Datum {
  std::string name;
  std::string help;
};

/// A command as data: parser, help and manual are made from it.
struct Command {
  std::string noun;
  std::string verb;  ///< empty for a command of one word
  std::string summary;
  std::vector<Operand> operands = {};
  std::vector<Option> options = {};
  /// Names of options of which exactly one must be given; empty for no such rule.
  std::vector<std::string> one_of = {};
  /// Of what it shows, where the names alone don't tell it.
  std::vector<Datum> data = {};
  /// Changes something, so that the option kDryRun is offered.
  bool changes = false;
  /// Does the work with an open instance; failures leave it as mgr_err::Error.
  std::function<void(Call&)> run;
  /// True when it only looks. It does not wait then for reloads that others have left.
  bool reads = false;
  /// Begins what takes long, for `run`, while the panel is opened: its tables can be read by then.
  /// Leaves it to `run` to say what is wrong.
  std::function<void(Call&)> begin = {};
};

/// Of every command that makes passwords which its output alone tells: INT, TERM and HUP wait, once
/// it changes something, until that is written or its loss has been said.
inline constexpr const char* kGenerate = "--generate";

/// Offered by every command that changes something; the program itself obeys it.
inline const Option kDryRun = {"--dry-run", "", "show what would be changed, change nothing"};

/// All commands, in the order of the help.
const std::vector<Command>& Commands();

}  // namespace brisq
