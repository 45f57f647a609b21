#include <fmt/format.h>

#include "brisq/command_groups.h"
#include "brisq/output.h"
#include "panel/domains.h"

namespace brisq {
namespace {

Record RecordOf(const brisq_panel::DomainInfo& domain) {
  return {{"domain", domain.name},         {"owner", domain.owner}, {"active", domain.active},
          {"mailboxes", domain.mailboxes}, {"cert", domain.cert},   {"key", domain.key}};
}

void Add(Call& call) {
  const auto domain =
      brisq_panel::AddDomain(call.arguments.Text("DOMAIN"), call.arguments.Text("--owner"));
  call.output.Say(fmt::format("domain {} added", domain.name));
  call.output.Silent(RecordOf(domain));
}

void List(Call& call) {
  for (const auto& domain : brisq_panel::ListDomains()) call.output.Row(RecordOf(domain));
}

void Show(Call& call) {
  call.output.Show(RecordOf(brisq_panel::ShowDomain(call.arguments.Text("DOMAIN"))));
}

}  // namespace

std::vector<Command> DomainCommands() {
  const Operand domain{"DOMAIN", "name of the domain"};
  return {
      {.noun = "domain",
       .verb = "add",
       .summary = "Add a mail domain.",
       .operands = {domain},
       .options = {{"--owner", "NAME", "owner of the domain and its mailboxes", true}},
       .one_of = {},
       .run = Add},
      {.noun = "domain",
       .verb = "list",
       .summary = "List the domains.",
       .operands = {},
       .options = {},
       .one_of = {},
       .run = List},
      {.noun = "domain",
       .verb = "show",
       .summary = "Show one domain.",
       .operands = {domain},
       .options = {},
       .one_of = {},
       .run = Show},
  };
}

}  // namespace brisq
