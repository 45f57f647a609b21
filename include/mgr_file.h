#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <utility>

#include "brisq_export.h"

/// Files: immediate operations on the file system. Paths are used as they stand. Any thread.
namespace mgr_file {

/// Mode and owner that a new file or directory gets.
struct BRISQ_API Attrs {
  Attrs(mode_t mode_, uid_t uid_, gid_t gid_) : mode(mode_), uid(uid_), gid(gid_) {}

  mode_t mode;
  uid_t uid;
  gid_t gid;
};

/// True when something exists at the path, links followed: a dangling link does not exist.
/// @throws mgr_err::Error "file" when that can't be told (a directory on the way that can't be
/// searched, for example)
BRISQ_API bool Exists(const std::string& path);

/// Makes one directory with exactly these attributes, whatever the umask, durably; its parent must
/// exist.
/// @throws mgr_err::Error "file", also when something is at the path: nothing is left that was not
/// there
BRISQ_API void MkDir(const std::string& path, const Attrs& attrs);

/// Joins a directory and a name by one slash, also when the directory ends in slashes; an empty
/// directory gives the name alone.
BRISQ_API std::string ConcatPath(const std::string& directory, const std::string& name);

/// Directory part (without the slash behind it, empty when there is none) and file name of a path.
BRISQ_API std::pair<std::string, std::string> SplitPath(const std::string& path);

/// The whole file.
/// @throws mgr_err::Error "file" when it can't be read or is no regular file
BRISQ_API std::string ReadE(const std::string& path);

/// Removes a file or a symbolic link (not what it points to). True when it is gone afterwards by
/// this call, false otherwise.
BRISQ_API bool RemoveFile(const std::string& path) noexcept;

/// What the system says of one path, at the time of construction.
class BRISQ_API Info {
 public:
  /// @param mode  1: a symbolic link is what is looked at; 2: links are followed, so that a
  /// dangling link counts as missed
  /// @throws mgr_err::Error "internal" for another mode, "file" when the state can't be told
  Info(const std::string& path, int mode);

  /// True when nothing exists at the path.
  bool IsMissed() const noexcept { return missed_; }

 private:
  bool missed_;
};

/// Walks the entries of one directory, "." and ".." left out, in the order in which the system
/// yields them.
class BRISQ_API Dir {
 public:
  /// A directory that does not exist has no entries.
  /// @throws mgr_err::Error "file" when it exists and can't be opened
  explicit Dir(const std::string& path);
  ~Dir();
  Dir(const Dir&) = delete;
  Dir& operator=(const Dir&) = delete;

  /// Advances to the next entry; false at the end. The first call goes to the first entry.
  /// @throws mgr_err::Error "file" when reading fails
  bool Read();
  /// True when the current entry's name ends in `extension` (given with its dot) and has something
  /// before it.
  bool HasExt(const std::string& extension) const;
  /// Name of the current entry.
  const std::string& name() const noexcept { return name_; }
  /// The directory's path joined with the name.
  std::string FullName() const;

 private:
  struct Handle;
  std::string path_;
  std::string name_;
  std::unique_ptr<Handle> handle_;
};

/// Files in directories that belong to users, who may change anything there at any moment.
namespace safe {

/// Whose directory tree it is: the part of a user's record that file operations on the user's
/// behalf need.
class BRISQ_API Owner {
 public:
  virtual ~Owner();
  virtual uid_t OwnerUid() const = 0;
  virtual gid_t OwnerGid() const = 0;
  /// Absolute path of the tree's root. The way to it belongs to the system; from it on everything
  /// belongs to the user.
  virtual std::string OwnerHome() const = 0;
};

/// A directory inside a user's tree, which may yet have to be made by an earlier job. Each use
/// opens it anew, component by component from the tree's root, following no link and accepting
/// nothing that belongs to somebody else.
///
/// A value; the default one names no directory and stands for "anywhere in the system".
class BRISQ_API Folder {
 public:
  Folder() = default;
  /// @param root  the tree's root, absolute
  /// @param path  the directory, absolute, the root itself or below it
  Folder(std::string root, std::string path, uid_t uid, gid_t gid);

  bool empty() const noexcept { return path_.empty(); }
  const std::string& root() const noexcept { return root_; }
  const std::string& path() const noexcept { return path_; }
  uid_t uid() const noexcept { return uid_; }
  gid_t gid() const noexcept { return gid_; }

 private:
  std::string root_;
  std::string path_;
  uid_t uid_ = 0;
  gid_t gid_ = 0;
};

}  // namespace safe
}  // namespace mgr_file
