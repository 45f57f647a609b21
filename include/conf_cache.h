#pragma once

#include <functional>
#include <memory>
#include <string>

#include "brisq_export.h"
#include "conf_dataset.h"
#include "mgr_file.h"
#include "mgr_token.h"
#include "smart_ptr.h"

class ConfConfiguration;
class ConfFile;
class ConfRegistry;

/// A loaded configuration file. A value; copies refer to the same file. Any thread.
class BRISQ_API ConfRef {
 public:
  ConfRef(std::shared_ptr<ConfFile> file, std::shared_ptr<const ConfConfiguration> configuration);

  /// Makes a view on the file through the factory registered for this dataset name; each call makes
  /// one with its own current line.
  /// @throws mgr_err::Error "internal" for a dataset name that is not registered
  SmartPtr<HeadDataSet> _Get(const std::string& dataset) const;

  const std::string& path() const noexcept;

 private:
  std::shared_ptr<ConfFile> file_;
  std::shared_ptr<const ConfConfiguration> configuration_;
};

/// Loaded configuration files, shared by all who use them. Any thread.
///
/// Every file is parsed once and kept as a document, read again when somebody else has changed it.
/// Saves replace the file as a whole and keep its owner, mode, ACL and extended attributes; threads
/// that post at the same time share one save.
class BRISQ_API ConfCache {
 public:
  /// What an after-save hook is told: the file was written; there was nothing to write; a change by
  /// somebody else was taken over.
  enum SaveReason : int { srWritten = 0, srNothing = 1, srTakenOver = 2 };
  using Factory = HeadDataSet* (*)();

  /// @param documents  kept parsed while nobody uses them; the least recently used leaves first
  explicit ConfCache(int documents);
  virtual ~ConfCache();
  ConfCache(const ConfCache&) = delete;
  ConfCache& operator=(const ConfCache&) = delete;

  /// Factory of a dataset class, as Add takes it: a new, empty dataset that the caller owns.
  template <class T>
  static HeadDataSet* Create() {
    T* const dataset = new T;
    dataset->ConfDataSet::is_plain_ = ConfPlainDataSet<T>;
    return dataset;
  }

  /// Has `hook` of `object` called once after each save of a file of this configuration, on a
  /// thread that posted, outside of every lock of the cache. What it throws reaches that thread's
  /// Post; the file stays saved. `object` must outlive the cache's use.
  template <class Object>
  void _AfterSave(const std::string& name, Object* object,
                  void (Object::*hook)(ConfRef&, SaveReason&)) {
    SetAfterSave(
        name, [object, hook](ConfRef& ref, SaveReason& reason) { (object->*hook)(ref, reason); });
  }

  /// Registers a dataset of a configuration; nothing is made yet. A second call for the same
  /// dataset replaces its factory for views that are made from then on.
  /// @param dataset  name by which ConfRef::_Get finds it
  /// @param label    name for messages
  void Add(const std::string& name, const std::string& dataset, const char* label, Factory factory);

  /// The file `path` of configuration `name`.
  ///
  /// @param folder  default-constructed for a file of the system
  /// @param create  true: a file that is missing is empty, and made by the first save; false: that
  /// is an error
  /// @throws mgr_err::Error "internal" for a configuration that is not registered, "missed" for a
  /// missing file without `create`,
  ///         "file" when it can't be read or is no regular file
  ConfRef Config(const std::string& name, const mgr_file::safe::Folder& folder,
                 const std::string& path, bool create);

 protected:
  using Hook = std::function<void(ConfRef&, SaveReason&)>;
  /// Records the syntax of a configuration; a second call for the same name replaces the first.
  void SetSyntax(const std::string& name, std::shared_ptr<mgr_token::Params> params);

 private:
  void SetAfterSave(const std::string& name, Hook hook);
  std::unique_ptr<ConfRegistry> registry_;
};

/// The host's configuration cache.
class BRISQ_API MgrConfCache : public ConfCache {
 public:
  using ConfCache::ConfCache;
  /// Makes a configuration known: its name and the syntax of its files.
  void Register(const std::string& name, std::shared_ptr<mgr_token::Params> params);
};
