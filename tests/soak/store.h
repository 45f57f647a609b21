#pragma once

#include <memory>
#include <string>

namespace soak {

/// One who changes a passwd-file; each call returns when its change is made, or throws
/// mgr_err::Error when it is not. For one thread.
class Store {
 public:
  virtual ~Store() = default;
  virtual void Add(const std::string& name, const std::string& password) = 0;
  virtual void Set(const std::string& name, const std::string& password) = 0;
  virtual void Remove(const std::string& name) = 0;
};

/// Changes the file by the engine.
std::unique_ptr<Store> MakeEngineStore(const std::string& path);
/// A control: locks, looks whether the file is as it was read, and renames a new one over it.
std::unique_ptr<Store> MakeRenamingStore(const std::string& path);
/// A control: writes the file in place.
std::unique_ptr<Store> MakeInPlaceStore(const std::string& path);

}  // namespace soak
