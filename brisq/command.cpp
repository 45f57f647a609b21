#include "brisq/command.h"

#include "brisq/command_groups.h"

namespace brisq {

std::string Arguments::Text(const std::string& name) const {
  const auto found = values_.find(name);
  return found == values_.end() ? std::string() : found->second.front();
}

std::vector<std::string> Arguments::List(const std::string& name) const {
  const auto found = values_.find(name);
  return found == values_.end() ? std::vector<std::string>() : found->second;
}

const std::vector<Command>& Commands() {
  static const std::vector<Command> commands = [] {
    std::vector<Command> all;
    for (const auto& group :
         {OwnerCommands(), DomainCommands(), MailboxCommands(), RefreshCommands(),
          PasswdFileCommands(), CheckCommands(), SyncCommands(), TlsCommands(), ReloadCommands(),
          JobCommands(), ActionCommands(), ServeCommands()})
      all.insert(all.end(), group.begin(), group.end());
    for (Command& command : all)
      if (command.changes) command.options.push_back(kDryRun);
    return all;
  }();
  return commands;
}

}  // namespace brisq
