#pragma once

#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "framework/modules.h"

namespace brisq_api {

/// The constructor functions that plug-ins have registered, and the modules that came of them. Any
/// thread.
class BRISQ_API ModuleRegistry {
 public:
  /// The one of the process; never destroyed, since plug-ins withdraw while the process ends.
  static ModuleRegistry& Instance();

  /// Names the plug-in file whose registrations are made on this thread while the object lives.
  class BRISQ_API Loading {
   public:
    explicit Loading(std::string file);
    ~Loading();
    Loading(const Loading&) = delete;
    Loading& operator=(const Loading&) = delete;
  };

  /// Has the next Build of `category` call `constructor`. `registrar` is only told apart, so it may
  /// be one that is being constructed; it withdraws before it dies.
  void Add(const BaseRegisterModule* registrar, const std::string& category,
           BaseRegisterModule::ConstructorFn constructor);
  /// Drops what `registrar` has added, and the modules that were built from it.
  void Withdraw(const BaseRegisterModule* registrar);
  /// True when the file has registered something.
  bool HasRegistered(const std::string& file);
  /// See BuildModules.
  std::vector<PluginReport> Build(const std::string& category);

 private:
  struct Entry {
    const BaseRegisterModule* registrar;
    std::string category;
    BaseRegisterModule::ConstructorFn constructor;
    std::string file;
    bool called = false;
    std::unique_ptr<Module> module = nullptr;
  };

  Entry* NextToBuild(const std::string& category);

  std::mutex mutex_;
  std::list<Entry> entries_;
};

}  // namespace brisq_api
