#include "brisq/program.h"

#include <exception>
#include <optional>
#include <ostream>

#include "brisq/command_line.h"
#include "brisq/dry_run.h"
#include "brisq/exit_codes.h"
#include "brisq/output.h"
#include "framework/config_file.h"
#include "framework/doubts.h"
#include "framework/modules.h"
#include "panel/held_signals.h"
#include "panel/instance.h"
#include "panel/known_settings.h"
#include "panel/run_request.h"

namespace brisq {
namespace {

void WarnOfPlugins(const brisq_panel::Instance& instance, Output& output) {
  for (const auto& report : instance.reports())
    if (!report.error.empty()) output.Warn("plug-in " + report.file + ": " + report.error);
}

void WarnOfUnknown(const mgr_cf::Settings& settings, Output& output) {
  for (const std::string& line : brisq_panel::UnknownSettings(settings)) output.Warn(line);
}

// True when something that was changed may be lost.
bool WarnOfDoubts(Output& output) {
  const std::vector<std::string> texts = doubts::Take();
  for (const std::string& text : texts) output.Warn(text);
  return !texts.empty();
}

// For a command that failed: what it took back may be in doubt as well.
void TellDoubts(const Console& console) {
  for (const std::string& text : doubts::Take())
    console.err << "brisq: warning: " << Printable(text) << "\n";
}

bool TellsNewPasswords(const CommandLine& line) {
  return line.arguments.Has(kGenerate) && !line.arguments.Has(kDryRun.name);
}

// Signals are held, from the command on, for as long as the caller wants.
int Run(const CommandLine& line, const Console& console,
        std::optional<brisq_panel::HeldSignals>& held) {
  const mgr_cf::Settings settings = mgr_cf::ReadSettings(line.config);
  Output output(console, line.json);
  Call call{line.arguments, output, console, settings.file};
  brisq_panel::Instance instance(settings, [&] {
    if (line.command->begin) line.command->begin(call);
  });
  WarnOfPlugins(instance, output);
  WarnOfUnknown(settings, output);
  for (const std::string& words : instance.recovered()) output.Warn(words);
  const brisq_panel::NoteKeeper keeper;
  if (TellsNewPasswords(line)) held.emplace();
  if (line.command->changes && line.arguments.Has(kDryRun.name)) {
    RunDry(call, [&] { line.command->run(call); });
  } else {
    line.command->run(call);
    if (!line.command->reads && call.run_due)
      for (const std::string& problem : instance.RunDue()) output.Warn(problem);
  }
  for (const std::string& note : keeper.notes()) output.Warn(note);
  if (keeper.IsAnythingOwed() && call.exit_code == 0) call.exit_code = kExitOwed;
  if (WarnOfDoubts(output) && call.exit_code == 0) call.exit_code = kExitDoubt;
  output.Finish();
  console.out.flush();
  if (!console.out) throw mgr_err::Error("file", "standard output", output.Loss());
  return call.exit_code;
}

}  // namespace

int RunProgram(const std::vector<std::string>& words, const Console& console) {
  // Until the output is written or an error has named what is lost.
  std::optional<brisq_panel::HeldSignals> held;
  try {
    const auto line = ParseCommandLine(words, console);
    const int exit_code = line ? Run(*line, console, held) : 0;
    console.out.flush();
    if (!console.out) throw mgr_err::Error("file", "standard output", "can't be written");
    return exit_code;
  } catch (const mgr_err::Error& error) {
    console.err << ErrorLine(error) << "\n";
    TellDoubts(console);
    return KindOf(error).exit_code;
  } catch (const std::exception& error) {
    console.err << ErrorLine(mgr_err::Error("internal", "", error.what())) << "\n";
    TellDoubts(console);
    return 1;
  }
}

}  // namespace brisq
