#include <fmt/format.h>

#include <optional>

#include "brisq/command_groups.h"
#include "brisq/confirm.h"
#include "brisq/on_off.h"
#include "brisq/output.h"
#include "mgr_err.h"
#include "panel/domain_changes.h"
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

void Set(Call& call) {
  brisq_panel::DomainChange change{.active = OnOff(call, "--active")};
  if (call.arguments.Has("--owner")) change.owner = call.arguments.Text("--owner");
  if (!change.owner && !change.active)
    throw mgr_err::Error("usage", "domain set", "nothing to change is given");
  const auto domain = brisq_panel::SetDomain(call.arguments.Text("DOMAIN"), change);
  call.output.Say(fmt::format("domain {} changed", domain.name));
  call.output.Silent(RecordOf(domain));
}

void Delete(Call& call) {
  const auto domain = brisq_panel::ShowDomain(call.arguments.Text("DOMAIN"));
  Confirm(call, fmt::format("Delete {} and its {} mailboxes? The mail stays on disk.", domain.name,
                            domain.mailboxes));
  for (const auto& removed : brisq_panel::DeleteDomain(domain.name)) {
    call.output.Say(
        fmt::format("mailbox {} deleted, its mail stays in {}", removed.address, removed.home));
    call.output.Silent({{"address", removed.address}, {"home", removed.home}});
  }
  call.output.Say(fmt::format("domain {} deleted", domain.name));
}

const Operand kDomain = {"DOMAIN", "name of the domain"};

}  // namespace

std::vector<Command> DomainCommands() {
  return {
      {.noun = "domain",
       .verb = "add",
       .summary = "Add a mail domain.",
       .operands = {kDomain},
       .options = {{"--owner", "NAME", "owner of the domain and its mailboxes", true}},
       .changes = true,
       .run = Add},
      {.noun = "domain",
       .verb = "list",
       .summary = "List the domains.",
       .run = List,
       .reads = true},
      {.noun = "domain",
       .verb = "show",
       .summary = "Show one domain.",
       .operands = {kDomain},
       .run = Show,
       .reads = true},
      {.noun = "domain",
       .verb = "set",
       .summary = "Change a domain.",
       .operands = {kDomain},
       .options = {{"--owner", "NAME", "another owner, while it has no mailboxes"},
                   {"--active", "on|off",
                    "off: no login and no delivery; on: each of its mailboxes as it was before"}},
       .changes = true,
       .run = Set},
      {.noun = "domain",
       .verb = "delete",
       .summary = "Delete a domain with its mailboxes; their mail stays on disk.",
       .operands = {kDomain},
       .options = {kYes},
       .changes = true,
       .run = Delete},
  };
}

}  // namespace brisq
