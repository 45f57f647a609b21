#include "framework/conf_registry.h"

#include <algorithm>
#include <vector>

#include "framework/rehearsal.h"
#include "mgr_err.h"

ConfRegistry::Configuration& ConfRegistry::Entry(const std::string& name) {
  Configuration& entry = configurations_[name];
  if (!entry.registered) entry.registered = std::make_shared<ConfConfiguration>(name);
  return entry;
}

ConfConfiguration& ConfRegistry::Declare(const std::string& name) {
  const std::lock_guard lock(mutex_);
  return *Entry(name).registered;
}

void ConfRegistry::SetSyntax(const std::string& name, const mgr_token::Params& syntax) {
  const std::lock_guard lock(mutex_);
  Configuration& entry = Entry(name);
  entry.registered->SetSyntax(syntax);
  entry.has_syntax = true;
}

std::shared_ptr<const ConfConfiguration> ConfRegistry::WithSyntax(const std::string& name) const {
  const auto configuration = configurations_.find(name);
  if (configuration == configurations_.end() || !configuration->second.has_syntax) {
    throw mgr_err::Error("internal", name, "not a registered configuration");
  }
  return configuration->second.registered;
}

std::shared_ptr<const ConfConfiguration> ConfRegistry::Registered(const std::string& name) const {
  const std::lock_guard lock(mutex_);
  return WithSyntax(name);
}

std::shared_ptr<ConfFile> ConfRegistry::File(const std::string& name, const std::string& path) {
  const std::lock_guard lock(mutex_);
  const auto configuration = WithSyntax(name);
  if (Rehearsal* rehearsal = Rehearsal::Current()) return rehearsal->File(path, configuration);
  File_& entry = files_[ConfFile::KeyOf(path, configuration->Syntax())];
  if (!entry.file) entry.file = std::make_shared<ConfFile>(path, configuration);
  entry.file->Join(configuration);
  entry.last_use = ++uses_;
  std::shared_ptr<ConfFile> file = entry.file;
  DropUnused();
  return file;
}

void ConfRegistry::DropUnused() {
  std::vector<decltype(files_)::iterator> unused;
  for (auto entry = files_.begin(); entry != files_.end(); ++entry) {
    const auto& file = entry->second.file;
    if (file.use_count() == 1 && !file->HasWaiting()) unused.push_back(entry);
  }
  if (unused.size() <= unused_) return;
  const auto by_use = [](const auto& left, const auto& right) {
    return left->second.last_use < right->second.last_use;
  };
  std::sort(unused.begin(), unused.end(), by_use);
  unused.resize(unused.size() - unused_);
  for (const auto& entry : unused) files_.erase(entry);
}

std::size_t ConfRegistry::Files() const {
  const std::lock_guard lock(mutex_);
  return files_.size();
}
