#include "brisq/command_groups.h"
#include "brisq/finding_output.h"
#include "panel/passwd_file_check.h"

namespace brisq {
namespace {

void Check(Call& call) { ShowFindings(call, brisq_panel::CheckPasswdFile()); }

}  // namespace

std::vector<Command> PasswdFileCommands() {
  return {
      {.noun = "passwd-file",
       .verb = "check",
       .summary = "Check the passwd-file, its lines and its names; exit code 5 with findings.",
       .operands = {},
       .options = {},
       .one_of = {},
       .run = Check},
  };
}

}  // namespace brisq
