#pragma once

#include <string>
#include <vector>

#include "brisq_export.h"

/// Owners of domains and mailboxes. Each function that changes something is one request of the
/// calling thread: when it throws, everything is as it was. Any thread.
namespace brisq_panel {

struct BRISQ_API OwnerInfo {
  std::string name;
  int uid = 0;
  int gid = 0;
  std::string home;
};

struct BRISQ_API AddedOwner {
  OwnerInfo owner;
  std::vector<std::string> notes;  ///< what else the user should know, in plain words
};

/// Adds an owner. A missing home directory is made (0750, the owner's), its missing parents too
/// (0755, root's); a note says so. A home that is there is left as it is; a note says when it
/// belongs to somebody else but root, as no mailbox can be made in it then.
/// @throws mgr_err::Error "value" from the rules of names.h, "exists" for the name, "file" when the
/// home can't be made or is no directory
BRISQ_API AddedOwner AddOwner(const OwnerInfo& owner);

/// All owners, by name.
BRISQ_API std::vector<OwnerInfo> ListOwners();

/// @throws mgr_err::Error "missed" with object "owner"
BRISQ_API OwnerInfo ShowOwner(const std::string& name);

}  // namespace brisq_panel
