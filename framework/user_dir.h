#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "brisq_export.h"
#include "framework/descriptor.h"
#include "framework/journal_record.h"
#include "mgr_file.h"

/// Directories in users' trees, where the user may swap any entry for another at any moment.
///
/// Every operation goes component by component, on descriptors: to the tree's root on a way that
/// nobody else can bend (framework/safe_way.h), from there on without following a symbolic link and
/// through directories of the user only; the root itself must be no link, and may belong to the
/// system's administrator as well. What it
/// refuses is reported as mgr_err::Error "file" with the entry's path and "not safe: REASON"; a
/// refusal by the system with its words. Any thread; the umask has no effect.
namespace user_dir {

/// A directory that was made, known again even when its name comes to stand for another one.
struct Made {
  std::string path;
  dev_t device;
  ino_t inode;
};

/// While it lives, Open, MakePath, MakeOne and StepsOfMaking of its thread go on from the folder
/// that the last of them came to, when that lies on their way: what was found safe is held open, so
/// that nobody can put something else in its place. For calls that follow each other at once: a
/// folder that is moved meanwhile is followed, one that is removed is not. One inside of another
/// begins anew.
class BRISQ_API KeepWay {
 public:
  KeepWay() noexcept;
  ~KeepWay();
  KeepWay(const KeepWay&) = delete;
  KeepWay& operator=(const KeepWay&) = delete;

 private:
  friend class Walk;

  bool IsOn(const mgr_file::safe::Folder& folder) const;

  KeepWay* const outer_;
  std::string root_;
  std::string path_;  // of the folder that is held
  uid_t uid_ = 0;
  Descriptor folder_;  // none as long as nothing is held
};

/// Checks that a path is absolute and has no component ".." and no NUL, and brings it into its
/// normal form: one slash between components, none at the end, no component ".".
/// @throws mgr_err::Error "value" with the path and the rule
BRISQ_API std::string Normalised(const std::string& path);

/// The folder `path` in the tree of `owner`; nothing on disk is looked at.
/// @throws mgr_err::Error "value" also when `path` does not lie below the owner's home
BRISQ_API mgr_file::safe::Folder Below(const mgr_file::safe::Owner& owner, const std::string& path);

/// Opens an existing folder for reading.
BRISQ_API Descriptor Open(const mgr_file::safe::Folder& folder);

/// Makes the folder and its missing parents, all with exactly `attrs`, and returns what it made,
/// topmost first: nothing when the folder was there. It is durable when the current request
/// commits, without one at once. The tree's root must exist.
/// @throws as above, everything that was made has been removed
BRISQ_API std::vector<Made> MakePath(const mgr_file::safe::Folder& folder,
                                     const mgr_file::Attrs& attrs);

/// Makes one directory with exactly `attrs`, durable as by MakePath.
/// @param name  a single component
/// @throws as above, also when something has this name; nothing is left
BRISQ_API Made MakeOne(const mgr_file::safe::Folder& parent, const std::string& name,
                       const mgr_file::Attrs& attrs);

/// For dry runs: refuses what MakePath would refuse on the way as far as it exists.
/// @return true when something would be made
BRISQ_API bool CheckMakePath(const mgr_file::safe::Folder& folder);

/// For dry runs: refuses what MakeOne would refuse; a parent that is missing yet is none of it.
BRISQ_API void CheckMakeOne(const mgr_file::safe::Folder& parent, const std::string& name);

/// Removes a directory that was made in the tree of `folder`, if its name still stands for it and
/// it is empty; leaves everything else alone.
/// @throws mgr_err::Error "file" when the way to it is no longer safe or the system refuses
BRISQ_API void Remove(const mgr_file::safe::Folder& folder, const Made& made);

/// What the journal must know before MakePath is called with this folder, or MakeOne for its last
/// component: one step for each directory that is missing, topmost first.
/// @throws as Open, but for what is missing
BRISQ_API std::vector<journal::Step> StepsOfMaking(const mgr_file::safe::Folder& folder);

/// Removes a directory that a dead process has announced and perhaps made, when it is empty and the
/// user's, or still root's.
/// @return false when something else is there by now: it stays
/// @throws mgr_err::Error "file" when the system refuses
BRISQ_API bool Undo(const journal::Step& step);

}  // namespace user_dir
