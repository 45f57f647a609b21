#include "framework/conf_configuration.h"

#include <utility>

#include "mgr_err.h"

void ConfConfiguration::SetSyntax(const mgr_token::Params& syntax) {
  const std::lock_guard lock(mutex_);
  syntax_ = syntax;
}

void ConfConfiguration::SetHook(Hook hook) {
  const std::lock_guard lock(mutex_);
  hook_ = std::move(hook);
}

void ConfConfiguration::AddDataSet(const std::string& dataset, ConfCache::Factory factory) {
  const std::lock_guard lock(mutex_);
  datasets_[dataset] = factory;
}

mgr_token::Params ConfConfiguration::Syntax() const {
  const std::lock_guard lock(mutex_);
  return syntax_;
}

HeadDataSet* ConfConfiguration::MakeDataSet(const std::string& dataset) const {
  ConfCache::Factory factory = nullptr;
  {
    const std::lock_guard lock(mutex_);
    const auto entry = datasets_.find(dataset);
    if (entry == datasets_.end()) {
      throw mgr_err::Error("internal", dataset, "not a dataset of configuration " + name_);
    }
    factory = entry->second;
  }
  return factory();
}

void ConfConfiguration::CallHook(ConfRef& ref, ConfCache::SaveReason reason) const {
  Hook hook;
  {
    const std::lock_guard lock(mutex_);
    hook = hook_;
  }
  if (hook) hook(ref, reason);
}
