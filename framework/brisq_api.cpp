#include "brisq_api.h"

#include <map>
#include <optional>
#include <set>
#include <shared_mutex>
#include <string_view>

#include "framework/due.h"
#include "framework/module_registry.h"
#include "framework/modules.h"
#include "framework/rehearsal.h"
#include "framework/request.h"
#include "mgr_err.h"

namespace brisq_api {

namespace {

// Never destroyed: objects of plug-ins leave these tables while the process ends.
struct Tables {
  std::shared_mutex mutex;
  std::set<std::string> modules;
  std::map<std::string, const Action*> actions;
};

Tables& TheTables() {
  static auto& tables = *new Tables;
  return tables;
}

std::optional<int> HexDigit(char digit) {
  if (digit >= '0' && digit <= '9') {
    return digit - '0';
  }
  const char lower = static_cast<char>(digit | 0x20);
  if (lower >= 'a' && lower <= 'f') {
    return lower - 'a' + 10;
  }
  return std::nullopt;
}

// A percent sign without two hexadecimal digits behind it stands for itself.
std::string Decoded(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size()) {
      const std::optional<int> high = HexDigit(text[i + 1]);
      const std::optional<int> low = HexDigit(text[i + 2]);
      if (high && low) {
        decoded += static_cast<char>(*high * 16 + *low);
        i += 2;
        continue;
      }
    }
    decoded += text[i];
  }
  return decoded;
}

std::map<std::string, std::string> ParsedParams(std::string_view text) {
  std::map<std::string, std::string> params;
  while (!text.empty()) {
    const std::string_view pair = text.substr(0, text.find('&'));
    text.remove_prefix(std::min(pair.size() + 1, text.size()));
    const std::string_view name = pair.substr(0, pair.find('='));
    if (!name.empty()) {
      params[Decoded(name)] = Decoded(pair.substr(std::min(name.size() + 1, pair.size())));
    }
  }
  return params;
}

}  // namespace

Module::Module(const std::string& name) : name_(name) {
  std::unique_lock guard(TheTables().mutex);
  if (!TheTables().modules.insert(name_).second) {
    throw mgr_err::Error("exists", "module", name_);
  }
}

Module::~Module() {
  std::unique_lock guard(TheTables().mutex);
  TheTables().modules.erase(name_);
}

BaseRegisterModule::~BaseRegisterModule() { ModuleRegistry::Instance().Withdraw(this); }

void BaseRegisterModule::Register(const std::string& name, ConstructorFn constructor) {
  ModuleRegistry::Instance().Add(this, name, constructor);
}

Session::Session(const std::string& params, std::uint32_t access)
    : params_(ParsedParams(params)), access_(access) {}

std::string Session::Param(const std::string& name) const {
  const auto found = params_.find(name);
  return found == params_.end() ? std::string() : found->second;
}

Action::Action(const std::string& name, std::uint32_t access, const Action* parent)
    : name_(name), access_(access), parent_(parent) {
  std::unique_lock guard(TheTables().mutex);
  if (!TheTables().actions.emplace(name_, this).second) {
    throw mgr_err::Error("exists", "action", name_);
  }
}

Action::~Action() {
  std::unique_lock guard(TheTables().mutex);
  TheTables().actions.erase(name_);
}

std::string Action::type() const { return "action"; }

bool Action::IsModify(const Session&) const { return true; }

bool Action::IsInMenu(const Session&) const { return false; }

std::string Action::FlowId(const Session&) const { return name_; }

void Action::set_flow_flags(Session&) const {}

bool Action::Authorize(const Session& session) const {
  return (session.access() & access_) == access_ &&
         (parent_ == nullptr || parent_->Authorize(session));
}

bool Action::AuthorizeBySession(const Session&) const { return true; }

void Action::Validate(Session&) const {}

void Action::CheckAccess(const Session& session) const {
  if (!Authorize(session) || !AuthorizeBySession(session)) {
    throw mgr_err::Error("access", "action", name_);
  }
}

std::string InternalCall(const std::string& action, const std::string& params) {
  const Action* found = FindAction(action);
  if (found == nullptr) {
    throw mgr_err::Error("missed", "action", action);
  }
  Session session(params);
  found->CheckAccess(session);
  found->Validate(session);
  found->Execute(session);
  return session.Answer();
}

void ExecuteLater(const std::string& command) {
  if (Request* request = Request::Current()) {
    request->QueueCommand(command);
  } else if (Rehearsal* rehearsal = Rehearsal::Current()) {
    rehearsal->Note("command " + command + " run");
  } else {
    due::QueueCommand(command);
  }
}

std::vector<const Action*> Actions() {
  std::shared_lock guard(TheTables().mutex);
  std::vector<const Action*> actions;
  for (const auto& [name, action] : TheTables().actions) {
    actions.push_back(action);
  }
  return actions;
}

const Action* FindAction(const std::string& name) {
  std::shared_lock guard(TheTables().mutex);
  const auto found = TheTables().actions.find(name);
  return found == TheTables().actions.end() ? nullptr : found->second;
}

std::vector<std::string> Modules() {
  std::shared_lock guard(TheTables().mutex);
  return {TheTables().modules.begin(), TheTables().modules.end()};
}

}  // namespace brisq_api
