#include <fmt/format.h>

#include <charconv>

#include "brisq/command_groups.h"
#include "brisq/output.h"
#include "mgr_err.h"
#include "panel/names.h"
#include "panel/owners.h"

namespace brisq {
namespace {

int Id(const Call& call, const std::string& option, const std::string& object) {
  const std::string text = call.arguments.Text(option);
  long long number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) number = -1;
  return brisq_panel::CheckId(object, number);
}

Record RecordOf(const brisq_panel::OwnerInfo& owner) {
  return {{"name", owner.name}, {"uid", owner.uid}, {"gid", owner.gid}, {"home", owner.home}};
}

void Add(Call& call) {
  const auto added =
      brisq_panel::AddOwner({call.arguments.Text("NAME"), Id(call, "--uid", "uid"),
                             Id(call, "--gid", "gid"), call.arguments.Text("--home")});
  for (const std::string& note : added.notes) call.output.Say(note);
  call.output.Say(fmt::format("owner {} added", added.owner.name));
  call.output.Silent(RecordOf(added.owner));
}

void List(Call& call) {
  for (const auto& owner : brisq_panel::ListOwners()) call.output.Row(RecordOf(owner));
}

void Show(Call& call) {
  call.output.Show(RecordOf(brisq_panel::ShowOwner(call.arguments.Text("NAME"))));
}

}  // namespace

std::vector<Command> OwnerCommands() {
  return {
      {.noun = "owner",
       .verb = "add",
       .summary = "Add an owner of domains and mailboxes.",
       .operands = {{"NAME", "name of the owner"}},
       .options = {{"--uid", "N", "user number under which the mail is kept, not 0", true},
                   {"--gid", "N", "group number under which the mail is kept, not 0", true},
                   {"--home", "DIR", "home directory, made when it is missing", true}},
       .changes = true,
       .run = Add},
      {.noun = "owner", .verb = "list", .summary = "List the owners.", .run = List, .reads = true},
      {.noun = "owner",
       .verb = "show",
       .summary = "Show one owner.",
       .operands = {{"NAME", "name of the owner"}},
       .run = Show,
       .reads = true},
  };
}

}  // namespace brisq
