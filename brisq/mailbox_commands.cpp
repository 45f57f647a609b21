#include <fmt/format.h>

#include "brisq/command_groups.h"
#include "brisq/mailbox_records.h"
#include "brisq/output.h"
#include "brisq/password_input.h"
#include "panel/mailboxes.h"
#include "panel/names.h"

namespace brisq {
namespace {

bool Generates(const Call& call) { return call.arguments.Has("--generate"); }

std::string Password(const Call& call) {
  return Generates(call) ? brisq_panel::GeneratePassword() : ReadPassword(call.console);
}

void Add(Call& call) {
  const std::string password = Password(call);
  const auto mailbox = brisq_panel::AddMailbox({.address = call.arguments.Text("ADDRESS"),
                                                .password = password,
                                                .quota = call.arguments.Text("--quota"),
                                                .home = call.arguments.Text("--home")});
  call.output.Say(
      fmt::format("mailbox {} added, mail in {}/.maildir", mailbox.address, mailbox.home));
  Record record = RecordOf(mailbox);
  if (!Generates(call)) return call.output.Silent(record);
  record.emplace_back("password", password);
  call.output.Bare(password, record);
}

void List(Call& call) {
  for (const auto& mailbox : brisq_panel::ListMailboxes()) call.output.Row(RecordOf(mailbox));
}

void Show(Call& call) {
  call.output.Show(RecordOf(brisq_panel::ShowMailbox(call.arguments.Text("ADDRESS"))));
}

}  // namespace

std::vector<Command> MailboxCommands() {
  const Operand address{"ADDRESS", "full address, LOCAL@DOMAIN"};
  return {
      {.noun = "mailbox",
       .verb = "add",
       .summary = "Add a mailbox to a domain.",
       .operands = {address},
       .options = {{"--password-stdin", "", "read the password from standard input"},
                   {"--generate", "", "make a password and print it"},
                   {"--quota", "SIZE", "500 or 500M, 2G; none or 0 for no limit"},
                   {"--home", "DIR", "home directory, else OWNERHOME/mail/DOMAIN/LOCAL"}},
       .one_of = {"--password-stdin", "--generate"},
       .run = Add},
      {.noun = "mailbox",
       .verb = "list",
       .summary = "List the mailboxes.",
       .operands = {},
       .options = {},
       .one_of = {},
       .run = List},
      {.noun = "mailbox",
       .verb = "show",
       .summary = "Show one mailbox.",
       .operands = {address},
       .options = {},
       .one_of = {},
       .run = Show},
  };
}

}  // namespace brisq
