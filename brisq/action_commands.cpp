#include <fmt/format.h>

#include "brisq/command_groups.h"
#include "brisq/output.h"
#include "brisq_api.h"
#include "framework/modules.h"

namespace brisq {
namespace {

void List(Call& call) {
  const brisq_api::Session administrator;
  for (const brisq_api::Action* action : brisq_api::Actions())
    call.output.Row({{"action", action->name()},
                     {"type", action->type()},
                     {"access", fmt::format("{:#010x}", action->access())},
                     {"modifies", action->IsModify(administrator)}});
}

void Run(Call& call) {
  const std::string name = call.arguments.Text("NAME");
  const std::string answer = brisq_api::InternalCall(name, call.arguments.Text("PARAMS"));
  call.output.Say("action " + name + " done");
  if (!answer.empty()) call.output.Bare(answer, {{"action", name}, {"answer", answer}});
}

}  // namespace

std::vector<Command> ActionCommands() {
  return {
      {.noun = "action",
       .verb = "list",
       .summary = "List the actions that modules have brought.",
       .run = List,
       .reads = true},
      {.noun = "action",
       .verb = "run",
       .summary = "Run an action with all rights.",
       .operands = {{"NAME", "name of the action"},
                    {"PARAMS", "NAME=VALUE pairs joined by \"&\"", false, false}},
       .changes = true,
       .run = Run},
  };
}

}  // namespace brisq
