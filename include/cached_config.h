#pragma once

#include <string>
#include <typeinfo>

#include "brisq_export.h"
#include "conf_cache.h"
#include "mgr_thread.h"
#include "smart_ptr.h"

/// What a configuration class hears from the cache.
class BRISQ_API BaseCachedConfigEvent {
 public:
  virtual ~BaseCachedConfigEvent();

  /// Called once after a save, on a thread that posted.
  virtual void AfterSave(ConfRef& ref, ConfCache::SaveReason& reason) = 0;
  /// The hook that is registered with the cache: passes on to AfterSave.
  void _AfterSave(ConfRef& ref, ConfCache::SaveReason& reason);

  /// The one lock that serialises the first use of every cached configuration in the process.
  static mgr_thread::SafeLock& GetInitLock();
};

/// A configuration class that lives in a cache of class `CacheClass`.
template <class CacheClass>
class BaseCachedConfig : public BaseCachedConfigEvent {
 public:
  /// The one cache of its class in the process, shared by the host and all plug-ins; made on first
  /// use, never destroyed.
  static CacheClass* Instance();
};

template <>
BRISQ_API MgrConfCache* BaseCachedConfig<MgrConfCache>::Instance();

/// Access to the files of configuration class `Config`, which derives from this class and registers
/// its syntax, its hook and its datasets in its constructor.
template <class Config, class CacheClass>
class CachedConfig : protected BaseCachedConfig<CacheClass> {
 public:
  ~CachedConfig() override = default;

  /// Opens a file of this configuration and returns a cursor on its dataset `DataSet`. The first
  /// call in the process makes the configuration object, under the init lock; when that fails the
  /// next call tries again.
  /// @param create  as for ConfCache::Config
  /// @throws what registration, ConfCache::Config and ConfRef::_Get throw: no cursor is returned
  template <class DataSet>
  static Cursor<DataSet> Get(const std::string& path, bool create) {
    const std::string& name = InitialisedName();
    SmartPtr<HeadDataSet> dataset;
    {
      mgr_file::safe::Folder anywhere;
      ConfRef ref = Cache()->Config(name, anywhere, path, create);
      dataset = ref._Get(typeid(DataSet).name());
    }
    return Cursor<DataSet>(dataset);
  }

 protected:
  CachedConfig() : name_(typeid(Config).name()) {}

  void AfterSave(ConfRef&, ConfCache::SaveReason&) override {}

  static CacheClass* Cache() { return BaseCachedConfig<CacheClass>::Instance(); }
  const std::string& name() const noexcept { return name_; }

 private:
  static Config& Instance() {
    static Config config;
    return config;
  }
  static const std::string& InitialisedName() {
    mgr_thread::SafeSection section(BaseCachedConfigEvent::GetInitLock());
    return static_cast<CachedConfig&>(Instance()).name_;
  }

  std::string name_;
};

/// Base of configuration classes in the host's cache, with the registrations that their
/// constructors make.
template <class Config>
class MgrCachedConfig : public CachedConfig<Config, MgrConfCache> {
 public:
  ~MgrCachedConfig() override = default;

 protected:
  MgrCachedConfig() = default;

  void RegisterSyntax(std::shared_ptr<mgr_token::Params> params) {
    this->Cache()->Register(this->name(), std::move(params));
  }
  void RegisterAfterSave() {
    this->Cache()->_AfterSave(this->name(), static_cast<BaseCachedConfigEvent*>(this),
                              &BaseCachedConfigEvent::_AfterSave);
  }
  template <class DataSet>
  void RegisterDataSet() {
    const char* dataset = typeid(DataSet).name();
    this->Cache()->Add(this->name(), dataset, dataset, &ConfCache::Create<DataSet>);
  }
};
