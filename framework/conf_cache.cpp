#include "conf_cache.h"

#include <algorithm>
#include <utility>

#include "framework/conf_file.h"
#include "framework/conf_registry.h"
#include "framework/conf_view.h"
#include "mgr_err.h"

ConfRef::ConfRef(std::shared_ptr<ConfFile> file,
                 std::shared_ptr<const ConfConfiguration> configuration)
    : file_(std::move(file)), configuration_(std::move(configuration)) {}

SmartPtr<HeadDataSet> ConfRef::_Get(const std::string& dataset) const {
  std::shared_ptr<HeadDataSet> made(configuration_->MakeDataSet(dataset),
                                    [](HeadDataSet* last) { last->Drop(); });
  made->Attach(std::make_unique<ConfView>(file_, *made));
  return SmartPtr<HeadDataSet>(std::move(made));
}

const std::string& ConfRef::path() const noexcept { return file_->path(); }

ConfCache::ConfCache(int documents)
    : registry_(std::make_unique<ConfRegistry>(static_cast<std::size_t>(std::max(documents, 0)))) {}

ConfCache::~ConfCache() = default;

void ConfCache::Add(const std::string& name, const std::string& dataset, const char*,
                    Factory factory) {
  registry_->Declare(name).AddDataSet(dataset, factory);
}

ConfRef ConfCache::Config(const std::string& name, const mgr_file::safe::Folder& folder,
                          const std::string& path, bool create) {
  if (!folder.empty()) {
    throw mgr_err::Error("internal", path, "files in users' directories are not kept here");
  }
  std::shared_ptr<ConfFile> file = registry_->File(name, path);
  file->ReadCurrent();
  if (!create && !StampAt(path).exists) throw mgr_err::Error("missed", "file", path);
  return ConfRef(std::move(file), registry_->Registered(name));
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): plug-ins are built against it
void ConfCache::SetSyntax(const std::string& name, std::shared_ptr<mgr_token::Params> params) {
  registry_->SetSyntax(name, *params);
}

void ConfCache::SetAfterSave(const std::string& name, Hook hook) {
  registry_->Declare(name).SetHook(std::move(hook));
}

void MgrConfCache::Register(const std::string& name, std::shared_ptr<mgr_token::Params> params) {
  SetSyntax(name, std::move(params));
}
