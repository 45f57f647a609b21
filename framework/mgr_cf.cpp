#include "mgr_cf.h"

#include <map>
#include <mutex>
#include <shared_mutex>

#include "framework/config_file.h"

namespace mgr_cf {

namespace {

using Texts = std::map<std::string, std::string>;

// One name space: what was set over what was declared.
struct Layers {
  Texts set;
  Texts declared;

  std::string Get(const std::string& name) const {
    for (const Texts* layer : {&set, &declared}) {
      if (const auto found = layer->find(name); found != layer->end()) {
        return found->second;
      }
    }
    return {};
  }
};

struct Store {
  std::shared_mutex mutex;
  Layers params;
  Layers paths;
};

// Never destroyed: plug-ins may still read while the process ends.
Store& TheStore() {
  static Store& store = *new Store;
  return store;
}

std::string Read(Layers Store::*space, const std::string& name) {
  Store& store = TheStore();
  const std::shared_lock lock(store.mutex);
  return (store.*space).Get(name);
}

void Write(Layers Store::*space, Texts Layers::*layer, const std::string& name,
           const std::string& value) {
  Store& store = TheStore();
  const std::unique_lock lock(store.mutex);
  (store.*space.*layer)[name] = value;
}

std::vector<std::string> Declared(Layers Store::*space) {
  Store& store = TheStore();
  const std::shared_lock lock(store.mutex);
  std::vector<std::string> names;
  for (const auto& [name, value] : (store.*space).declared) {
    names.push_back(name);
  }
  return names;
}

}  // namespace

std::string GetParam(const std::string& name) { return Read(&Store::params, name); }

std::string GetPath(const std::string& name) { return Read(&Store::paths, name); }

void AddParam(const std::string& name, const std::string& value) {
  Write(&Store::params, &Layers::declared, name, value);
}

void SetPathDefault(const std::string& name, const std::string& value) {
  Write(&Store::paths, &Layers::declared, name, value);
}

void SetParam(const std::string& name, const std::string& value) {
  Write(&Store::params, &Layers::set, name, value);
}

void SetPath(const std::string& name, const std::string& value) {
  Write(&Store::paths, &Layers::set, name, value);
}

std::vector<std::string> DeclaredParams() { return Declared(&Store::params); }

std::vector<std::string> DeclaredPaths() { return Declared(&Store::paths); }

void Apply(const Settings& settings) {
  Texts params = settings.params;
  Texts paths = settings.paths;
  Store& store = TheStore();
  const std::unique_lock lock(store.mutex);
  store.params.set.swap(params);
  store.paths.set.swap(paths);
}

void Reset() {
  Store& store = TheStore();
  const std::unique_lock lock(store.mutex);
  store.params = {};
  store.paths = {};
}

}  // namespace mgr_cf
