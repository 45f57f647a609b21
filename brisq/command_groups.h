#pragma once

#include <vector>

#include "brisq/command.h"

/// One function per file of commands: the declarations of the group, with their code behind them.
namespace brisq {

std::vector<Command> OwnerCommands();
std::vector<Command> DomainCommands();
std::vector<Command> MailboxCommands();
std::vector<Command> RefreshCommands();
std::vector<Command> PasswdFileCommands();
std::vector<Command> CheckCommands();
std::vector<Command> SyncCommands();
std::vector<Command> TlsCommands();
std::vector<Command> ReloadCommands();
std::vector<Command> JobCommands();
std::vector<Command> ActionCommands();
std::vector<Command> ServeCommands();

}  // namespace brisq
