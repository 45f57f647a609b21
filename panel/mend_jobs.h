#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

#include "mgr_job.h"

/// Jobs that mend what a check has found.
namespace brisq_panel {

/// Gives a file or folder of the system another mode and, where told, group or owner. A symbolic
/// link is not followed. Undone unless somebody has changed it since.
class BRISQ_API SetAccess : public mgr_job::Job {
 public:
  static constexpr auto kSame = static_cast<uid_t>(-1);

  /// @param uid, gid  kSame for no other one
  SetAccess(const std::string& path, mode_t mode, uid_t uid = kSame, gid_t gid = kSame);
  void Do() override;
  void Undo() override;
  std::string Rehearse() override;

 private:
  struct Access {
    mode_t mode;
    uid_t uid;
    gid_t gid;
  };
  void Set(const Access& access, const Access* expected, Access* before) const;

  std::string path_;
  Access wanted_;
  Access before_ = {};
};

/// Gives a folder in a user's tree another mode, on the way that is safe there.
class BRISQ_API SetFolderMode : public mgr_job::Job {
 public:
  SetFolderMode(const mgr_file::safe::Folder& folder, mode_t mode);
  void Do() override;
  void Undo() override;
  std::string Rehearse() override;

 private:
  mode_t Change(mode_t mode, mode_t expected) const;

  mgr_file::safe::Folder folder_;
  mode_t wanted_;
  mode_t before_ = 0;
};

/// Removes something that nobody needs: the last step of its request, which has no undo.
class BRISQ_API ClearAway : public mgr_job::Job {
 public:
  /// @param what    in words, for a dry run: "file PATH removed"
  /// @param remove  does it
  ClearAway(const std::string& what, const std::function<void()>& remove);
  void Do() override;
  void Undo() override;
  std::string Rehearse() override;

 private:
  std::string what_;
  std::function<void()> remove_;
};

}  // namespace brisq_panel
