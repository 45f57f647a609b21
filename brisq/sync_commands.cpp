#include <fmt/format.h>

#include <functional>

#include "brisq/command_groups.h"
#include "brisq/exit_codes.h"
#include "brisq/output.h"
#include "panel/sync.h"

namespace brisq {
namespace {

using brisq_panel::SyncReport;

Record Kind(const char* kind, const std::string& text) {
  return {{"kind", std::string(kind)}, {"text", text}};
}

// A difference: a line for people, and what JSON holds.
using Show = std::function<void(const std::string&, Record)>;

void ShowDifferences(const SyncReport& report, const Show& show) {
  if (!report.diff.empty()) {
    show("--- " + report.path, Kind("file as it was", report.path));
    show("+++ " + report.path, Kind("file as the table has it", report.path));
  }
  for (const std::string& line : report.diff) show(line, Kind("line", line));
  for (const std::string& path : report.maildirs) show("+ Maildir " + path, Kind("maildir", path));
}

void ShowLeft(Call& call, const SyncReport& report) {
  for (const std::string& name : report.strangers) call.output.Silent(Kind("stranger", name));
  for (const std::string& problem : report.unsafe) call.output.Silent(Kind("unsafe", problem));
  for (const std::string& address : report.passwordless)
    call.output.Silent(Kind("without password", address));
  for (const std::string& name : report.strangers)
    call.output.Say(fmt::format("left alone: {} is no mailbox of the panel", name));
  for (const std::string& problem : report.unsafe) call.output.Warn("left alone: " + problem);
  for (const std::string& address : report.passwordless)
    call.output.Say(fmt::format("no password is known for {}", address));
}

// How to go on, as the last that is said. A Maildir left alone is no success, whatever else was
// done.
void CloseUndone(Call& call, const SyncReport& report, const char* outcome, const char* command) {
  if (!report.passwordless.empty())
    call.output.Say(fmt::format(
        "mailboxes left without a password: {}; \"brisq sync --generate\" gives each a new one",
        report.passwordless.size()));
  if (report.unsafe.empty()) return;
  call.output.Say(fmt::format("{}; left alone: {}; end what is named above, then {} again", outcome,
                              report.unsafe.size(), command));
  call.exit_code = kExitFindings;
}

void Plan(Call& call) {
  const SyncReport report = brisq_panel::PlanSync();
  ShowDifferences(report, [&](const std::string& line, Record record) {
    call.output.Bare(Printable(line), std::move(record));
  });
  ShowLeft(call, report);
  if (report.Differs()) call.exit_code = kExitFindings;
  CloseUndone(call, report, "not all could be looked at", "brisq plan");
}

std::string LostPasswords(const SyncReport& report) {
  std::string advice =
      "the new passwords of these are lost; set others with \"brisq mailbox passwd "
      "ADDRESS --generate\":";
  for (const auto& [address, password] : report.passwords) advice += " " + address;
  return advice;
}

void ShowPasswords(Call& call, const SyncReport& report) {
  if (!report.passwords.empty()) call.output.IfLost(LostPasswords(report));
  for (const auto& [address, password] : report.passwords)
    call.output.Bare(
        address + " " + password,
        {{"kind", std::string("password")}, {"address", address}, {"password", password}});
}

// What was written goes to the person; the new passwords are the data.
void Sync(Call& call) {
  const SyncReport report = brisq_panel::Sync(call.arguments.Has(kGenerate));
  ShowDifferences(report, [&](const std::string& line, Record record) {
    call.output.Say(line);
    call.output.Silent(std::move(record));
  });
  ShowLeft(call, report);
  if (!report.Differs() && report.unsafe.empty() && report.passwordless.empty())
    call.output.Say("nothing to do");
  if (!call.arguments.Has(kDryRun.name)) ShowPasswords(call, report);
  CloseUndone(call, report, "not all is done", "brisq sync");
}

}  // namespace

std::vector<Command> SyncCommands() {
  return {
      {.noun = "plan",
       .verb = "",
       .summary = "Show what sync would do, as a diff with masked hashes; exit code 5 when it is "
                  "anything, or something can't be looked at.",
       .operands = {},
       .options = {},
       .one_of = {},
       .run = Plan,
       .reads = true},
      {.noun = "sync",
       .verb = "",
       .summary = "Have the passwd-file and the Maildirs serve what the panel's table holds; exit "
                  "code 5 when a Maildir or a line cut short had to be left alone.",
       .operands = {},
       .options = {{kGenerate, "",
                    "give each mailbox whose password nobody keeps a new one and print it"}},
       .one_of = {},
       .changes = true,
       .run = Sync},
  };
}

}  // namespace brisq
