#include <fmt/format.h>

#include "brisq/command_groups.h"
#include "brisq/dry_run.h"
#include "brisq/finding_output.h"
#include "brisq/output.h"
#include "mgr_err.h"
#include "panel/check.h"

namespace brisq {
namespace {

using brisq_panel::Drift;
using brisq_panel::Finding;

std::string Words(const Finding& finding) {
  return fmt::format("{} {}: {}", finding.code, finding.object, finding.text);
}

// Mends what needs no choice; what is left.
std::vector<Finding> Mend(Call& call, const std::vector<Drift>& drifts) {
  std::vector<Finding> left;
  for (const Drift& drift : drifts) {
    if (!drift.mend) {
      left.push_back(drift.finding);
      continue;
    }
    try {
      brisq_panel::MendDrift(drift);
      call.output.Say("mended: " + Words(drift.finding));
      call.output.Beside("mended", RecordOf(drift.finding));
    } catch (const mgr_err::Error& error) {
      call.output.Warn(fmt::format("not mended: {}: {}: {}", Words(drift.finding), error.object(),
                                   error.value()));
      left.push_back(drift.finding);
    }
  }
  return left;
}

std::vector<Finding> FindingsOf(const std::vector<Drift>& drifts) {
  std::vector<Finding> findings;
  for (const Drift& drift : drifts) findings.push_back(drift.finding);
  return findings;
}

// One mend may show or end another finding, so each round looks anew.
std::vector<Finding> MendAll(Call& call, std::vector<Drift> drifts, const std::string& only) {
  constexpr int kRounds = 3;
  for (int round = 0; round < kRounds; ++round) {
    const std::vector<Finding> left = Mend(call, drifts);
    const bool any_mended = left.size() < drifts.size();
    drifts = brisq_panel::CheckInstance(only);
    if (!any_mended) break;
  }
  return FindingsOf(drifts);
}

void Check(Call& call) {
  const std::string only = call.arguments.Text("--only");
  const std::vector<Drift> drifts = brisq_panel::CheckInstance(only);
  call.run_due = call.arguments.Has("--fix") && !call.arguments.Has(kDryRun.name);
  if (!call.arguments.Has("--fix")) return ShowFindings(call, FindingsOf(drifts));
  std::vector<Finding> left;
  if (call.arguments.Has(kDryRun.name)) {
    RunDry(call, [&] { left = Mend(call, drifts); });
  } else {
    left = MendAll(call, drifts, only);
  }
  ShowFindings(call, left);
}

std::string Areas() {
  std::string text = "look at one area alone:";
  for (const auto& area : brisq_panel::CheckAreas())
    text += fmt::format(" {} ({});", area.name, area.about);
  text.pop_back();
  return text;
}

}  // namespace

std::vector<Command> CheckCommands() {
  return {
      {.noun = "check",
       .verb = "",
       .summary = "Compare database, passwd-file, Maildirs and certificates; exit code 5 with "
                  "findings. docs/operate/checks.md explains each.",
       .operands = {},
       .options = {{"--only", "AREA", Areas()},
                   {"--fix", "", "mend what can be mended without a choice"},
                   {kDryRun.name, "", "with --fix: show what would be mended"}},
       .one_of = {},
       .run = Check},
  };
}

}  // namespace brisq
