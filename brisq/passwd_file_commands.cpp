#include <algorithm>
#include <iostream>

#include "brisq/command_groups.h"
#include "brisq/editor.h"
#include "brisq/finding_output.h"
#include "brisq/output.h"
#include "mgr_err.h"
#include "panel/passwd_file_check.h"
#include "panel/passwd_file_edit.h"

namespace brisq {
namespace {

using brisq_panel::Finding;
using brisq_panel::PasswdFileEdit;

void Check(Call& call) { ShowFindings(call, brisq_panel::CheckPasswdFile()); }

bool AnyError(const std::vector<Finding>& findings) {
  return std::any_of(findings.begin(), findings.end(), [](const Finding& finding) {
    return finding.severity == brisq_panel::Severity::kError;
  });
}

bool WantsToGoOn(const Console& console) {
  for (;;) {
    console.err << "Edit again or abandon? [e/a] " << std::flush;
    std::string answer;
    if (!std::getline(console.in, answer) || answer == "a") return false;
    if (answer == "e") return true;
  }
}

// Edits until nothing is wrong or the person gives up. False when it must not be saved.
bool EditUntilRight(Call& call, PasswdFileEdit& edit, const std::string& editor) {
  for (;;) {
    RunEditor(editor, edit.copy());
    const auto review = edit.Look();
    if (!review.changed) {
      call.output.Say("nothing was changed");
      return false;
    }
    if (!AnyError(review.findings)) {
      for (const Finding& finding : review.findings)
        call.output.Warn(brisq_panel::FindingLine(finding));
      return true;
    }
    if (!call.console.interactive) {
      ShowFindings(call, review.findings);
      call.output.Say("nothing was changed");
      return false;
    }
    for (const Finding& finding : review.findings)
      call.output.Say(brisq_panel::FindingLine(finding));
    if (!WantsToGoOn(call.console))
      throw mgr_err::Error("limit", "", "abandoned, nothing was changed");
  }
}

void Edit(Call& call) {
  const std::string editor = EditorCommand(call.console);
  PasswdFileEdit edit;
  if (!EditUntilRight(call, edit, editor)) return;
  edit.Save();
  if (!call.arguments.Has(kDryRun.name)) call.output.Say("the passwd-file was changed");
}

}  // namespace

std::vector<Command> PasswdFileCommands() {
  return {
      {.noun = "passwd-file",
       .verb = "check",
       .summary = "Check the passwd-file, its lines and its names; exit code 5 with findings.",
       .operands = {},
       .options = {},
       .one_of = {},
       .run = Check,
       .reads = true},
      {.noun = "passwd-file",
       .verb = "edit",
       .summary = "Edit the passwd-file in VISUAL or EDITOR; what is wrong in a line is refused.",
       .operands = {},
       .options = {},
       .one_of = {},
       .changes = true,
       .run = Edit},
  };
}

}  // namespace brisq
