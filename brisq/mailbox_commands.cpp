#include <fmt/format.h>

#include <optional>

#include "brisq/command_groups.h"
#include "brisq/confirm.h"
#include "brisq/mailbox_records.h"
#include "brisq/on_off.h"
#include "brisq/output.h"
#include "brisq/password_input.h"
#include "mgr_err.h"
#include "panel/hash_ahead.h"
#include "panel/mailbox_changes.h"
#include "panel/mailbox_removal.h"
#include "panel/mailboxes.h"
#include "panel/names.h"

namespace brisq {
namespace {

bool Generates(const Call& call) { return call.arguments.Has(kGenerate); }

std::unique_ptr<GivenPassword> TakeIn(const Call& call) {
  return std::make_unique<GivenPassword>([&] {
    return Generates(call) ? brisq_panel::GeneratePassword() : ReadPassword(call.console);
  });
}

// Null for who sits at a terminal, who is asked when all is ready.
const std::string* TakeInEarly(Call& call) {
  if (call.console.interactive && !Generates(call)) return nullptr;
  call.password = TakeIn(call);
  return call.password->IfAny();
}

std::optional<std::string> Given(const Call& call, const std::string& option) {
  if (!call.arguments.Has(option)) return std::nullopt;
  return call.arguments.Text(option);
}

brisq_panel::NewMailbox Wished(const Call& call, const std::string& password) {
  return {.address = call.arguments.Text("ADDRESS"),
          .password = password,
          .quota = Given(call, "--quota"),
          .home = Given(call, "--home")};
}

void BeginToAdd(Call& call) {
  if (const std::string* password = TakeInEarly(call))
    call.hash = brisq_panel::BeginToAdd(Wished(call, *password));
}

void BeginPasswd(Call& call) {
  if (const std::string* password = TakeInEarly(call))
    call.hash = brisq_panel::BeginHash(call.arguments.Text("ADDRESS"), *password,
                                       brisq_panel::HashFor::kOtherPassword);
}

// The caller's, so that it is gone as soon as it has been used.
std::unique_ptr<GivenPassword> Password(Call& call) {
  return call.password ? std::move(call.password) : TakeIn(call);
}

void ShowPassword(Call& call, const std::string& address, const std::string& password,
                  Record record) {
  if (!Generates(call) || call.arguments.Has(kDryRun.name))
    return call.output.Silent(std::move(record));
  call.output.IfLost(
      fmt::format("the new password of {0} is lost: set another one with "
                  "\"brisq mailbox passwd {0} --generate\"",
                  address));
  record.emplace_back("password", password);
  call.output.Bare(password, std::move(record));
}

void SayAll(Call& call, const std::vector<std::string>& notes) {
  for (const std::string& note : notes) call.output.Say(note);
}

void Add(Call& call) {
  const auto given = Password(call);
  const std::string& password = given->Text();
  const auto mailbox = brisq_panel::AddMailbox(Wished(call, password));
  call.hash.reset();
  call.output.Say(
      fmt::format("mailbox {} added, mail in {}/.maildir", mailbox.address, mailbox.home));
  ShowPassword(call, mailbox.address, password, RecordOf(mailbox));
}

void ListArchive(Call& call) {
  for (const auto& mailbox : brisq_panel::ListArchived())
    call.output.Row({{"address", mailbox.address},
                     {"owner", mailbox.owner},
                     {"home", mailbox.home},
                     {"quota_mb", mailbox.quota_mb},
                     {"used_mb", mailbox.used_mb},
                     {"reason", mailbox.reason},
                     {"archived", mailbox.archived},
                     {"password_known", mailbox.password_known}});
}

void List(Call& call) {
  if (call.arguments.Has("--archived")) return ListArchive(call);
  for (const auto& mailbox : brisq_panel::ListMailboxes()) call.output.Row(RecordOf(mailbox));
}

void Show(Call& call) {
  call.output.Show(RecordOf(brisq_panel::ShowMailbox(call.arguments.Text("ADDRESS"))));
}

void Set(Call& call) {
  const brisq_panel::MailboxChange change{.quota = Given(call, "--quota"),
                                          .home = Given(call, "--home"),
                                          .active = OnOff(call, "--active")};
  if (!change.quota && !change.home && !change.active)
    throw mgr_err::Error("usage", "mailbox set", "nothing to change is given");
  const auto changed = brisq_panel::SetMailboxes(call.arguments.List("ADDRESS"), change);
  SayAll(call, changed.notes);
  for (const auto& mailbox : changed.mailboxes) {
    call.output.Say(fmt::format("mailbox {} changed", mailbox.address));
    call.output.Silent(RecordOf(mailbox));
  }
}

void Passwd(Call& call) {
  const std::string address = call.arguments.Text("ADDRESS");
  const auto given = Password(call);
  const std::string& password = given->Text();
  brisq_panel::SetPassword(address, password);
  call.hash.reset();
  call.output.Say(fmt::format("mailbox {} has a new password", address));
  ShowPassword(call, address, password, {{"address", address}});
}

void Delete(Call& call) {
  const std::vector<std::string> addresses = call.arguments.List("ADDRESS");
  Confirm(call, "Delete " + Joined(addresses) + "? The mail stays on disk.");
  for (const auto& removed : brisq_panel::DeleteMailboxes(addresses)) {
    call.output.Say(
        fmt::format("mailbox {} deleted, its mail stays in {}", removed.address, removed.home));
    call.output.Silent({{"address", removed.address}, {"home", removed.home}});
  }
}

void Restore(Call& call) {
  const auto restored = brisq_panel::RestoreMailboxes(call.arguments.List("ADDRESS"));
  for (const auto& mailbox : restored.mailboxes) {
    call.output.Say(fmt::format("mailbox {} restored", mailbox.address));
    call.output.Silent(RecordOf(mailbox));
  }
  SayAll(call, restored.notes);
}

const Operand kAddress = {"ADDRESS", "full address, LOCAL@DOMAIN"};
const Operand kAddresses = {"ADDRESS", "full addresses, LOCAL@DOMAIN", true};
const Option kPasswordStdin = {"--password-stdin", "", "read the password from standard input"};
const Option kGenerateOne = {kGenerate, "", "make a password and print it"};
const Option kQuota = {"--quota", "SIZE", "500 or 500M, 2G; none or 0 for no limit"};

std::vector<Command> Basics() {
  return {
      {.noun = "mailbox",
       .verb = "add",
       .summary = "Add a mailbox to a domain.",
       .operands = {kAddress},
       .options = {kPasswordStdin,
                   kGenerateOne,
                   kQuota,
                   {"--home", "DIR", "home directory, else OWNERHOME/mail/DOMAIN/LOCAL"}},
       .one_of = {kPasswordStdin.name, kGenerate},
       .changes = true,
       .run = Add,
       .begin = BeginToAdd},
      {.noun = "mailbox",
       .verb = "list",
       .summary = "List the mailboxes.",
       .options = {{"--archived", "", "those that were deleted or swept by a refresh"}},
       .run = List,
       .reads = true},
      {.noun = "mailbox",
       .verb = "show",
       .summary = "Show one mailbox.",
       .operands = {kAddress},
       .run = Show,
       .reads = true},
  };
}

std::vector<Command> Changes() {
  return {
      {.noun = "mailbox",
       .verb = "set",
       .summary = "Change mailboxes: all of them or, on any error, none.",
       .operands = {kAddresses},
       .options = {kQuota,
                   {"--home", "DIR", "another home directory; no mail is moved"},
                   {"--active", "on|off", "off: no login and no delivery"}},
       .changes = true,
       .run = Set},
      {.noun = "mailbox",
       .verb = "passwd",
       .summary = "Set a mailbox's password.",
       .operands = {kAddress},
       .options = {kPasswordStdin, kGenerateOne},
       .one_of = {kPasswordStdin.name, kGenerate},
       .changes = true,
       .run = Passwd,
       .begin = BeginPasswd},
      {.noun = "mailbox",
       .verb = "delete",
       .summary = "Delete mailboxes: all of them or, on any error, none; their mail stays on disk.",
       .operands = {kAddresses},
       .options = {kYes},
       .changes = true,
       .run = Delete},
      {.noun = "mailbox",
       .verb = "restore",
       .summary = "Bring deleted or swept mailboxes back: all of them or, on any error, none.",
       .operands = {kAddresses},
       .changes = true,
       .run = Restore},
  };
}

}  // namespace

std::vector<Command> MailboxCommands() {
  std::vector<Command> commands = Basics();
  for (Command& command : Changes()) commands.push_back(std::move(command));
  return commands;
}

}  // namespace brisq
