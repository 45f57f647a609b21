#pragma once

#include <memory>
#include <string>
#include <vector>

#include "brisq_export.h"
#include "framework/conf_file.h"
#include "framework/file_lock.h"
#include "panel/findings.h"

namespace brisq_panel {

/// One edit of the instance's passwd-file by hand: a private copy to work on, checks of what has
/// been made of it, and the way back through the configuration-file engine.
///
/// The panel, Dovecot and others go on using the file meanwhile; only another edit of this kind is
/// kept out. The copy lies in a folder of its own (0700) of the panel's state and goes with the
/// object, unless Save's error says that it stays; what was left there goes with the next edit.
class BRISQ_API PasswdFileEdit {
 public:
  /// What has been made of the copy.
  struct Review {
    bool changed = false;           ///< it is not what was copied any more
    std::vector<Finding> findings;  ///< what is wrong with it that was not wrong before
  };

  /// @throws mgr_err::Error "locked" when another edit goes on, or when somebody does not end
  /// writing into the file; "file", also when there is no such file
  PasswdFileEdit();
  ~PasswdFileEdit();
  PasswdFileEdit(const PasswdFileEdit&) = delete;
  PasswdFileEdit& operator=(const PasswdFileEdit&) = delete;

  /// The copy (0600), to be changed in place or replaced.
  const std::string& copy() const noexcept { return copy_; }

  /// Reads the copy as it is now. Line numbers are those of the copy.
  /// @throws mgr_err::Error "file"
  Review Look();

  /// Puts what the last Look has read in the file's place. Changes that others have made of the
  /// file since it was copied are kept; where both have changed the same columns of a line nothing
  /// is changed.
  /// @throws mgr_err::Error "later" when both have changed the same: the edited copy stays, at the
  /// path that the error names; whatever a save throws
  void Save();

  /// Folder of the panel's state, set when the panel is opened.
  static void SetFolder(const std::string& folder);

 private:
  void MakeCopy();

  const std::string path_;
  const std::string folder_;
  const FileLock lock_;
  const std::shared_ptr<ConfFile> file_;
  const std::string copy_;
  std::string before_;
  std::string after_;
  bool keep_folder_ = false;  // the only place of an edit that was refused
};

}  // namespace brisq_panel
