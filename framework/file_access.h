#pragma once

#include <sys/types.h>

#include <string>

#include "brisq_export.h"
#include "framework/journal_record.h"
#include "mgr_file.h"

/// Modes and owners of what is on disk already, changed so that a later process can take the change
/// back. Any thread. Errors are mgr_err::Error "file" and name the path.
namespace file_access {

struct Access {
  mode_t mode = 0;  ///< the twelve bits that chmod(2) sets
  uid_t uid = 0;
  gid_t gid = 0;
  bool operator==(const Access&) const = default;
};

/// Where it lies: a path of the system, whose last component is not followed when it is a link, or
/// a folder in a user's tree, reached on the way that is safe there.
struct Place {
  std::string path;
  mgr_file::safe::Folder folder = {};  ///< empty for a path of the system
};

/// @throws also "not safe: REASON" for a folder whose way is not safe
BRISQ_API Access Of(const Place& place);

/// Gives it this access, durably. After an error it has the access of before.
/// @throws as Of; "not undone: changed since" when it has neither the access `from` nor, in some
/// of its parts, already that of `to`: nothing has changed then
BRISQ_API void Change(const Place& place, const Access& from, const Access& to);

/// What the journal must know before the change is made.
BRISQ_API journal::Step ToStep(const Place& place, const Access& from, const Access& to);

/// Takes the change of a dead process back, whether it was made or not.
/// @return false when somebody else has changed the access since, or it is gone: it stays
/// @throws as Of
BRISQ_API bool Undo(const journal::Step& step);

}  // namespace file_access
