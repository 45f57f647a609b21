#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "brisq_export.h"
#include "conf_cache.h"
#include "mgr_token.h"

/// What is registered for one configuration: the syntax of its files, its datasets and its hook.
/// Registrations may be replaced while files are in use. Any thread.
class BRISQ_API ConfConfiguration {
 public:
  using Hook = std::function<void(ConfRef&, ConfCache::SaveReason&)>;

  explicit ConfConfiguration(std::string name) : name_(std::move(name)) {}

  void SetSyntax(const mgr_token::Params& syntax);
  void SetHook(Hook hook);
  void AddDataSet(const std::string& dataset, ConfCache::Factory factory);

  mgr_token::Params Syntax() const;
  /// A new dataset, which the caller owns.
  /// @throws mgr_err::Error "internal" for one that is not registered; what its factory throws
  HeadDataSet* MakeDataSet(const std::string& dataset) const;
  /// Calls the hook, if there is one, outside of all locks.
  void CallHook(ConfRef& ref, ConfCache::SaveReason reason) const;

 private:
  const std::string name_;
  mutable std::mutex mutex_;
  mgr_token::Params syntax_;
  Hook hook_;
  std::map<std::string, ConfCache::Factory> datasets_;
};
