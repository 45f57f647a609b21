#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>

#include "brisq_export.h"
#include "framework/journal_record.h"
#include "mgr_file.h"

/// A file or symbolic link that is prepared beside its place, put there whole, and can be taken
/// back: what a job needs to replace an entry of a directory that belongs to the system.
///
/// Beside the target stands (framework/aside.h) first the prepared entry, then what it replaced,
/// until Discard or Restore. What a killed process has left there is dealt with by Undo or Finish.
class BRISQ_API FileSwap {
 public:
  /// Where a symbolic link leads, taken as it stands.
  struct LinkTo {
    std::string target;
  };

  /// Prepares a regular file with exactly this content, mode and owner, whatever the umask, and
  /// syncs it.
  /// @param path  absolute; its directory exists
  /// @throws mgr_err::Error "file": nothing is left
  FileSwap(const std::string& path, std::string_view content, const mgr_file::Attrs& attrs);
  /// Prepares a symbolic link.
  /// @throws as above
  FileSwap(const std::string& path, const LinkTo& link);
  /// Removes what was prepared and never put in place.
  ~FileSwap();
  FileSwap(const FileSwap&) = delete;
  FileSwap& operator=(const FileSwap&) = delete;

  /// For dry runs: refuses, as construction and Publish would, a path whose directory is missing
  /// or at which a directory stands.
  /// @throws mgr_err::Error "file"
  static void RefuseUnfit(const std::string& path);

  /// Puts the prepared entry in the target's place, replacing a file or a symbolic link (not what
  /// it points to), and syncs the directory. A reader sees the old entry, none if there was none,
  /// or the new one.
  /// @throws mgr_err::Error "file", also when a directory stands there: all is as before, or the
  /// request's entry stays in the journal for what could not be put back
  void Publish();

  /// After Publish: puts back what was replaced, or removes the entry when there was nothing.
  /// @throws mgr_err::Error "file" with the rule "changed since" when the entry is not the one that
  /// Publish left: it stays, and what was replaced is given up; otherwise when the system refuses:
  /// what was replaced stays beside the target and is named in the error
  void Restore();

  /// After Publish: removes what was replaced. Failing to do so leaves it behind.
  void Discard() noexcept;

  /// Takes back what a dead process has noted in the journal and perhaps done, by this class or by
  /// LinkRemoval.
  /// @return false when somebody else has changed the entry since: it stays as it is
  /// @throws mgr_err::Error "file" when the system refuses; "missed" when what was replaced is gone
  static bool Undo(const journal::Step& step);
  /// Removes what a dead process, whose request is committed, has left beside the target.
  /// @throws mgr_err::Error "file"
  static void Finish(const journal::Step& step);

 private:
  /// Tells an entry from another one, and a file from its later content.
  struct Stamp {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified = {};
    bool operator==(const Stamp& other) const noexcept;
  };

  explicit FileSwap(const std::string& path);
  void Note(const std::string& fresh);
  Stamp StampOf(const std::string& path) const;
  std::string WhereOldIs() const;
  void PutInPlace();
  bool TryRename(unsigned flags, int refusal);
  void ReplaceByRename();

  std::string path_;
  std::string directory_;
  std::string aside_;  // the entry beside the target; empty when there is none
  std::string fresh_;  // fingerprint of what is put there
  std::string noted_;  // fingerprint of what the journal takes for the replaced one
  Stamp stamp_;
  bool published_ = false;
};
