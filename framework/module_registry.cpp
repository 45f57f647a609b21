#include "framework/module_registry.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace brisq_api {

namespace {

thread_local std::string loading_file;

}  // namespace

ModuleRegistry& ModuleRegistry::Instance() {
  static auto& registry = *new ModuleRegistry;
  return registry;
}

ModuleRegistry::Loading::Loading(std::string file) { loading_file = std::move(file); }

ModuleRegistry::Loading::~Loading() { loading_file.clear(); }

void ModuleRegistry::Add(const BaseRegisterModule* registrar, const std::string& category,
                         BaseRegisterModule::ConstructorFn constructor) {
  std::lock_guard guard(mutex_);
  entries_.push_back({registrar, category, constructor, loading_file});
}

void ModuleRegistry::Withdraw(const BaseRegisterModule* registrar) {
  // Destroyed behind the lock: a module's destructor may come back here.
  std::list<Entry> withdrawn;
  std::lock_guard guard(mutex_);
  for (auto entry = entries_.begin(); entry != entries_.end();) {
    const auto next = std::next(entry);
    if (entry->registrar == registrar) {
      withdrawn.splice(withdrawn.end(), entries_, entry);
    }
    entry = next;
  }
}

bool ModuleRegistry::HasRegistered(const std::string& file) {
  std::lock_guard guard(mutex_);
  return std::any_of(entries_.begin(), entries_.end(),
                     [&file](const Entry& entry) { return entry.file == file; });
}

ModuleRegistry::Entry* ModuleRegistry::NextToBuild(const std::string& category) {
  std::lock_guard guard(mutex_);
  for (Entry& entry : entries_) {
    if (!entry.called && entry.category == category) {
      entry.called = true;
      return &entry;
    }
  }
  return nullptr;
}

std::vector<PluginReport> ModuleRegistry::Build(const std::string& category) {
  std::vector<PluginReport> reports;
  while (Entry* entry = NextToBuild(category)) {
    reports.push_back({entry->file, ""});
    std::string& error = reports.back().error;
    try {
      entry->module.reset(entry->constructor());
      error = entry->module ? "" : "its module constructor returned nothing";
    } catch (const std::exception& failure) {
      error = std::string("its module constructor threw: ") + failure.what();
    } catch (...) {
      error = "its module constructor threw something that is no exception";
    }
  }
  return reports;
}

}  // namespace brisq_api
