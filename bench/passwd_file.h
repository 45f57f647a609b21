#pragma once

#include <string>

#include "cached_config.h"
#include "conf_dataset.h"
#include "dd.h"

namespace bench {

/// A mail server's passwd-file, as the plug-in describes it.
class Passwd : public UnixDataSet {
 public:
  Passwd();

  dd::Field name;
  dd::Field passwd;
  dd::Field uid;
  dd::Field gid;
  dd::Field info;
  dd::Field home;
  dd::Field shell;
  dd::Field flags;
  dd::Field maildir;
};

/// Its configuration, whose saves are counted and cause nothing.
class PasswdConfig : public MgrCachedConfig<PasswdConfig> {
 public:
  PasswdConfig();

  static Cursor<Passwd> Open(const std::string& path) { return Get<Passwd>(path, true); }
  /// Files written since the process began. Any thread.
  static long Saves() noexcept;

 protected:
  void AfterSave(ConfRef& ref, ConfCache::SaveReason& reason) override;
};

/// Name of the mailbox on a line of the files that are measured, counted from 0.
std::string NameOfLine(long line);

/// Posts a new mailbox like those of the files that are measured.
void AddMailbox(Passwd& line, const std::string& name);

}  // namespace bench
