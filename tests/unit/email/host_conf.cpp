// Stand-ins for the configuration cache and its datasets: the lines are the host's script.
#include <algorithm>

#include "cached_config.h"
#include "conf_cache.h"
#include "conf_dataset.h"
#include "mgr_err.h"
#include "tests/unit/email/recording_host.h"

using recording::Host;
using recording::Line;

namespace {

/// The host's lines as a walked storage: a place is an index.
class Storage : public dd::RecordCache {
 public:
  dd::RecordPtr First() override { return At(0); }
  dd::RecordPtr Next(dd::RecordPtr place) override { return At(place.at + 1); }
  dd::RecordPtr Find(const std::string& key) override {
    const auto& lines = Host::Instance().lines;
    const auto line =
        std::find_if(lines.begin(), lines.end(), [&](const Line& l) { return l[0] == key; });
    return At(static_cast<std::size_t>(line - lines.begin()));
  }
  std::string Value(dd::RecordPtr place, unsigned long column) override {
    return Host::Instance().lines.at(place.at).at(column - 1);
  }
  void CheckValue(unsigned long, const std::string&, const std::string&) const override {}

 private:
  static dd::RecordPtr At(std::size_t index) {
    return index < Host::Instance().lines.size() ? dd::RecordPtr{index} : dd::RecordPtr{};
  }
};

Storage storage;

void NoteConstruction(const std::string& call) {
  if (Host::Instance().follow_datasets) Host::Instance().Note(call);
}

}  // namespace

namespace dd {

RecordCache::~RecordCache() = default;
void RecordCache::BeforeNew() {}
void RecordCache::AfterNew() {}

Record::Record() = default;
Record::~Record() = default;
void Record::AddField(const std::string&, Field* field) { fields_.push_back(field); }
std::string Record::RsName() const { return "unknown"; }
std::string Record::KeyVal(RecordPtr place) const { return storage.Value(place, 1); }

void Record::MoveTo(RecordPtr place) {
  current_ = place;
  is_new_ = false;
  set_.clear();
}

bool Record::Find(const std::string& key) {
  Host::Instance().Note("Find " + key);
  const RecordPtr found = storage.Find(key);
  if (found) MoveTo(found);
  return static_cast<bool>(found);
}

void Record::Assert(const std::string& key) {
  Host::Instance().Note("Assert " + key);
  const RecordPtr found = storage.Find(key);
  if (!found) throw mgr_err::Error("missed", "name", key);
  MoveTo(found);
}

void Record::New() {
  Host::Instance().Note("New");
  MoveTo({});
  is_new_ = true;
}

void Record::First() {
  Host::Instance().Note("First");
  MoveTo(storage.First());
}

void Record::Next() {
  Host::Instance().Note("Next");
  MoveTo(storage.Next(current_));
}

std::string Record::GetField(unsigned long column) const {
  const auto set = std::find_if(set_.begin(), set_.end(),
                                [&](const auto& each) { return each.first == column; });
  if (set != set_.end()) return set->second;
  return current_ ? storage.Value(current_, column) : "";
}

void Record::SetField(unsigned long column, const std::string& value) {
  set_.remove_if([&](const auto& each) { return each.first == column; });
  set_.emplace_back(column, value);
}

Field::Field(Record* owner, const std::string& name, bool (*check)(std::string&))
    : owner_(owner), name_(name), check_(check), column_(owner->Fields().size() + 1) {
  owner->AddField(name, this);
  NoteConstruction("Field " + name + (check ? " checked" : ""));
}

std::string Field::Str() const { return owner_->GetField(column_); }

void Field::Set(const std::string& value) {
  Host::Instance().Note("Set " + name_ + " '" + value + "'");
  std::string checked = value;
  if (check_ && !check_(checked))
    throw mgr_err::Error("value", name_, "is not of the form that this field takes");
  owner_->SetField(column_, checked);
}

}  // namespace dd

class ConfConfiguration {};
class ConfView {};
class ConfFile {
 public:
  explicit ConfFile(std::string path_) : path(std::move(path_)) {}

  std::string path;
};

class ConfRegistry {
 public:
  ConfCache::Factory factory = nullptr;
  std::function<void()> saved;
};

namespace {

ConfRegistry* registry = nullptr;

void Saved() {
  if (registry->saved) registry->saved();
}

}  // namespace

ConfDataSet::ConfDataSet(ConfDataSet* parent) : parent_(parent) {
  NoteConstruction(parent ? "ConfDataSet with parent" : "ConfDataSet without parent");
  ++Host::Instance().cursors_out;
}
ConfDataSet::~ConfDataSet() { --Host::Instance().cursors_out; }
dd::RecordCache* ConfDataSet::getCache(int) { return &storage; }
ConfAllocation* ConfDataSet::getAlloc() { return nullptr; }
const mgr_token::Params* ConfDataSet::getParams() { return nullptr; }
ConfSrc* ConfDataSet::getConfig() { return nullptr; }
void ConfDataSet::RawRead(int, ConfSrc*, ConfAllocation*) {}
void ConfDataSet::Modify() {}
dd::RecordCache& ConfDataSet::GetCache() { return storage; }
void ConfDataSet::onBeforeNew() {}
void ConfDataSet::onBeforePost() {}
void ConfDataSet::onBeforeDelete() {}
void ConfDataSet::onAfterNew() {}
void ConfDataSet::onAfterPost() {}
void ConfDataSet::onAfterDelete() {}
ConfDataSet* ConfDataSet::Base() { return parent_ ? parent_ : this; }

void ConfDataSet::Post(const std::string& place) {
  Host::Instance().Note("Post line '" + place + "'");
  auto& lines = Host::Instance().lines;
  if (IsNew()) lines.emplace_back();
  const std::size_t at = IsNew() ? lines.size() - 1 : Current().at;
  for (const auto& [column, value] : SetValues()) lines.at(at).at(column - 1) = value;
  MoveTo({at});
  Saved();
}

void ConfDataSet::Delete() {}

void ConfDataSet::_Delete(bool save) {
  Host::Instance().Note(std::string("_Delete ") + (save ? "true" : "false"));
  auto& lines = Host::Instance().lines;
  lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(Current().at));
  MoveTo({});
  Saved();
}

std::string ConfDataSet::FieldValue(const std::string&, const std::string& value) { return value; }
std::string ConfDataSet::FieldPrefix(const std::string&) { return {}; }
std::string ConfDataSet::FieldSuffix(const std::string&) { return {}; }
std::string ConfDataSet::NewField(const std::string&, const std::string& value) { return value; }
std::string ConfDataSet::NewRecordTemplate() { return {}; }
void ConfDataSet::Erase(unsigned long) {}

HeadDataSet::HeadDataSet() : ConfDataSet(nullptr) {}
HeadDataSet::~HeadDataSet() = default;
void HeadDataSet::Drop() { delete this; }
ConfDataSet* HeadDataSet::Base() { return this; }

UnixDataSet::UnixDataSet() : ConfDataSet(nullptr) {}
UnixDataSet::~UnixDataSet() = default;
void UnixDataSet::Parse(Cf) {}
std::string UnixDataSet::NewRecord(Columns&) { return {}; }
std::string UnixDataSet::DummyString() const { return {}; }

std::shared_ptr<mgr_token::Params> UnixConfParams() {
  Host::Instance().Note("UnixConfParams");
  static const auto params = std::make_shared<mgr_token::Params>();
  return params;
}

ConfRef::ConfRef(std::shared_ptr<ConfFile> file,
                 std::shared_ptr<const ConfConfiguration> configuration)
    : file_(std::move(file)), configuration_(std::move(configuration)) {}

SmartPtr<HeadDataSet> ConfRef::_Get(const std::string& dataset) const {
  Host::Instance().Note("_Get " + dataset);
  return SmartPtr<HeadDataSet>(std::shared_ptr<HeadDataSet>(registry->factory()));
}

const std::string& ConfRef::path() const noexcept { return file_->path; }

ConfCache::ConfCache(int documents) : registry_(std::make_unique<ConfRegistry>()) {
  Host::Instance().Note("ConfCache " + std::to_string(documents));
  registry = registry_.get();
}
ConfCache::~ConfCache() = default;

void ConfCache::Add(const std::string& name, const std::string& dataset, const char* label,
                    Factory factory) {
  Host::Instance().Note("Add " + name + " " + dataset + " " + label);
  registry_->factory = factory;
}

void ConfCache::SetSyntax(const std::string& name, std::shared_ptr<mgr_token::Params> params) {
  const auto given = std::move(params);
  Host::Instance().Note("Register " + name + (given == UnixConfParams() ? " unix" : " other"));
}

void ConfCache::SetAfterSave(const std::string& name, Hook hook) {
  Host::Instance().Note("_AfterSave " + name);
  registry_->saved = [hook = std::move(hook)] {
    ConfRef ref(std::make_shared<ConfFile>("/p"), nullptr);
    auto reason = static_cast<SaveReason>(Host::Instance().save_reason);
    hook(ref, reason);
  };
}

ConfRef ConfCache::Config(const std::string& name, const mgr_file::safe::Folder& folder,
                          const std::string& path, bool create) {
  Host::Instance().Note("Config " + name + (folder.empty() ? " " : " in a folder ") + path +
                        (create ? " true" : " false"));
  return {std::make_shared<ConfFile>(path), nullptr};
}

void MgrConfCache::Register(const std::string& name, std::shared_ptr<mgr_token::Params> params) {
  SetSyntax(name, std::move(params));
}

BaseCachedConfigEvent::~BaseCachedConfigEvent() = default;

void BaseCachedConfigEvent::_AfterSave(ConfRef& ref, ConfCache::SaveReason& reason) {
  AfterSave(ref, reason);
}

mgr_thread::SafeLock& BaseCachedConfigEvent::GetInitLock() {
  static mgr_thread::SafeLock lock;
  return lock;
}

template <>
MgrConfCache* BaseCachedConfig<MgrConfCache>::Instance() {
  static MgrConfCache* const cache = new MgrConfCache(20);
  return cache;
}
