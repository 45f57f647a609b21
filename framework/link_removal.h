#pragma once

#include <string>

#include "brisq_export.h"

/// The removal of a symbolic link from a directory that belongs to the system, which can be taken
/// back: the link is moved aside (framework/aside.h) until Discard or Restore.
class BRISQ_API LinkRemoval {
 public:
  /// Notes the removal in the journal; nothing else happens yet. What is no link will stay.
  /// @param path  absolute
  /// @throws mgr_err::Error "file"
  explicit LinkRemoval(const std::string& path);
  LinkRemoval(const LinkRemoval&) = delete;
  LinkRemoval& operator=(const LinkRemoval&) = delete;

  /// Moves the link aside and syncs the directory. Does nothing when no link is there.
  /// @throws mgr_err::Error "file": all is as before
  void Publish();

  /// After Publish: puts the link back.
  /// @throws mgr_err::Error "file" with the rule "changed since" when something stands in its
  /// place: that stays, and the link is given up; otherwise when the system refuses: the link stays
  /// aside and is named in the error
  void Restore();

  /// After Publish: removes the link for good. Failing to do so leaves it aside.
  void Discard() noexcept;

 private:
  const std::string path_;
  const std::string aside_;
  std::string moved_;  // where the link is; empty when it was not moved
};
