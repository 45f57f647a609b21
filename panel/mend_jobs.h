#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

#include "framework/file_access.h"
#include "mgr_job.h"

/// Jobs that mend what a check has found. Each tells the request's JobLog what it changes.
namespace brisq_panel {

/// Gives a file or folder another mode and, where told, group or owner. A symbolic link is not
/// followed. Undone unless somebody has changed it since.
class BRISQ_API SetAccess : public mgr_job::Job {
 public:
  static constexpr auto kSame = static_cast<uid_t>(-1);

  /// Of the system.
  /// @param uid, gid  kSame for no other one
  SetAccess(const std::string& path, mode_t mode, uid_t uid = kSame, gid_t gid = kSame);
  /// In a user's tree, on the way that is safe there.
  SetAccess(const mgr_file::safe::Folder& folder, mode_t mode);
  SetAccess(const file_access::Place& place, const file_access::Access& wanted);
  void Do() override;
  void Undo() override;
  std::string Rehearse() override;

 private:
  const file_access::Place place_;
  const file_access::Access before_;
  const file_access::Access wanted_;
};

/// Removes something that nobody needs: the last step of its request, which has no undo.
class BRISQ_API ClearAway : public mgr_job::Job {
 public:
  /// @param path    what goes, for the list of jobs
  /// @param what    in words, for a dry run: "file PATH removed"
  /// @param remove  does it
  ClearAway(const std::string& path, const std::string& what, const std::function<void()>& remove);
  void Do() override;
  void Undo() override;
  std::string Rehearse() override;

 private:
  std::string what_;
  std::function<void()> remove_;
};

}  // namespace brisq_panel
