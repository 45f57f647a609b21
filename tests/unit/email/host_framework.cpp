// Stand-ins for logs, configuration, modules, actions, schedule, reloader and statistics.
#include <cstdarg>
#include <cstdio>

#include "apistat.h"
#include "brisq_api.h"
#include "mgr_cf.h"
#include "mgr_log.h"
#include "periodic.h"
#include "reloader.h"
#include "tests/unit/email/recording_host.h"

using recording::Host;

namespace {

std::string Hex(std::uint32_t mask) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", mask);
  return text;
}

thread_local int admitted_level = -1;  // by the Check that came last

}  // namespace

namespace mgr_log {

struct Module::State {};

Module::Module(const char* module, const char* log) {
  Host::Instance().Note("log channel " + std::string(module) + " " + log);
}
Module::~Module() = default;

bool Module::Check(int level) const noexcept {
  const bool admitted = level <= Host::Instance().log_level;
  admitted_level = admitted ? level : -1;
  return admitted;
}

void Module::Write(int level, const char* format, ...) {
  char text[1024];
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  const bool guarded = admitted_level == level;
  admitted_level = -1;
  Host::Instance().NoteQuietly((guarded ? "log " : "UNGUARDED log ") + std::to_string(level) +
                               ": " + text);
}

}  // namespace mgr_log

namespace mgr_cf {

std::string GetParam(const std::string& name) {
  Host::Instance().Note("GetParam " + name);
  return Host::Instance().params[name];
}

std::string GetPath(const std::string& name) {
  Host::Instance().Note("GetPath " + name);
  return Host::Instance().paths[name];
}

void SetPathDefault(const std::string& name, const std::string& value) {
  Host::Instance().Note("SetPathDefault " + name + "=" + value);
  Host::Instance().paths.emplace(name, value);
}

void AddParam(const std::string& name, const std::string& value) {
  Host::Instance().Note("AddParam " + name + "=" + value);
  Host::Instance().params.emplace(name, value);
}

}  // namespace mgr_cf

namespace apistat {

void ModuleInterface(const std::string& interface, const std::string& implementation) {
  Host::Instance().Note("ModuleInterface " + interface + " " + implementation);
}

}  // namespace apistat

namespace periodic {

void RegisterAction(const std::string& action, const std::string& params,
                    const std::string& period_param) {
  Host::Instance().Note("RegisterAction " + action + " '" + params + "' " + period_param);
}

}  // namespace periodic

namespace brisq_api {

Module::Module(const std::string& name) : name_(name) {
  Host::Instance().module = this;
  Host::Instance().Note("Module " + name);
}
Module::~Module() { Host::Instance().NoteQuietly("~Module " + name_); }

BaseRegisterModule::~BaseRegisterModule() = default;

void BaseRegisterModule::Register(const std::string& name, ConstructorFn constructor) {
  Host::Instance().Note("Register " + name);
  Host::Instance().constructor = constructor;
}

Session::Session(const std::string&, std::uint32_t access) : access_(access) {}

Action::Action(const std::string& name, std::uint32_t access, const Action* parent)
    : name_(name), access_(access), parent_(parent) {
  Host::Instance().Note("Action " + name + " " + Hex(access) + (parent ? " with" : " without") +
                        " parent");
  Host::Instance().actions.push_back(this);
}
Action::~Action() { std::erase(Host::Instance().actions, this); }
std::string Action::type() const { return "action"; }
bool Action::IsModify(const Session&) const { return true; }
bool Action::IsInMenu(const Session&) const { return false; }
std::string Action::FlowId(const Session&) const { return name_; }
void Action::set_flow_flags(Session&) const {}
bool Action::Authorize(const Session&) const { return parent_ == nullptr; }
bool Action::AuthorizeBySession(const Session&) const { return true; }
void Action::Validate(Session&) const {}
void Action::CheckAccess(const Session&) const {}

std::string InternalCall(const std::string& action, const std::string& params) {
  Host::Instance().Note("InternalCall " + action + " '" + params + "'");
  return "an answer";
}

void ExecuteLater(const std::string& command) {
  Host::Instance().Note("ExecuteLater '" + command + "'");
}

}  // namespace brisq_api

namespace reloader {

Reloader::Reloader(const std::string& group, const std::string& action,
                   const std::string& delay_param, const std::string& reload,
                   const std::string& restart)
    : Action(action, 0, nullptr),
      group_(group),
      delay_param_(delay_param),
      reload_(reload),
      restart_(restart) {
  Host::Instance().Note("Reloader '" + group + "' '" + action + "' '" + delay_param + "' '" +
                        reload + "' '" + restart + "'");
}
Reloader::~Reloader() = default;
void Reloader::Execute(brisq_api::Session&) const {}

}  // namespace reloader
