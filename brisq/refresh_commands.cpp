#include <fmt/format.h>

#include "brisq/command_groups.h"
#include "brisq/exit_codes.h"
#include "brisq/mailbox_records.h"
#include "brisq/output.h"
#include "panel/refresh.h"
#include "panel/usage.h"

namespace brisq {
namespace {

void WarnOfQuota(Call& call, const std::string& problem) {
  if (problem.empty()) return;
  call.output.Warn("Dovecot reports no used space: " + problem);
  call.exit_code = kExitDovecot;
}

long Number(std::size_t count) { return static_cast<long>(count); }

void Refresh(Call& call) {
  const auto report = brisq_panel::Refresh(call.arguments.Has("--sweep"));
  call.output.Show({{"walked", report.walked},
                    {"lines", Number(report.lines)},
                    {"unknown", Joined(report.unknown)},
                    {"homes_filled", Number(report.homes_filled)},
                    {"figures_changed", Number(report.figures_changed)},
                    {"swept", Joined(report.swept)}});
  for (const std::string& line : report.spared)
    call.output.Warn("left alone: " + line + "; the panel's mailbox stays");
  if (report.walked && report.lines == 0 && !report.swept.empty())
    call.output.Warn(
        "the passwd-file holds no mailbox any more, so all are archived; "
        "\"brisq mailbox restore ADDRESS\" brings each back");
  WarnOfQuota(call, report.quota_problem);
}

void Usage(Call& call) {
  const auto usage = brisq_panel::ShowUsage(call.arguments.Text("PATTERN"));
  for (const auto& row : usage.rows)
    call.output.Row({{"address", row.address},
                     {"used_mb", row.used_mb},
                     {"quota_mb", row.quota_mb},
                     {"as_of", usage.as_of}});
  call.output.Say(usage.as_of.empty()
                      ? "no figures yet; run brisq refresh"
                      : fmt::format("figures are {} seconds old", usage.age_seconds));
  WarnOfQuota(call, usage.quota_problem);
}

}  // namespace

std::vector<Command> RefreshCommands() {
  return {
      {.noun = "refresh",
       .verb = "",
       .summary = "Bring the panel's mailboxes into line with Dovecot's passwd-file and figures.",
       .options = {{"--sweep", "", "archive every mailbox whose line is gone, however many"}},
       .data = {{"walked",
                 "whether the passwd-file had changed since the last refresh and was read line by "
                 "line; else used space alone was brought up to date"},
                {"lines", "how many lines were read then"},
                {"unknown", "names in the file that are no mailbox of the panel; left alone"},
                {"homes_filled",
                 "mailboxes of which the panel knew no home and took that of their line"},
                {"figures_changed", "mailboxes whose used space is another one than before"},
                {"swept", "active mailboxes that had no line any more and went to the archive"}},
       .changes = true,
       .run = Refresh},
      {.noun = "usage",
       .verb = "",
       .summary = "Show the stored figures of used space.",
       .operands = {{"PATTERN", "an address, or a pattern with * and ?", false, false}},
       .run = Usage,
       .reads = true},
  };
}

}  // namespace brisq
