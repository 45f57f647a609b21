#pragma once

#include <memory>
#include <optional>
#include <string>

#include "brisq_export.h"
#include "framework/conf_document.h"
#include "framework/conf_lock.h"
#include "framework/conf_stamp.h"
#include "framework/safe_replace.h"

/// The disk's side of saving a file, from taking its lock to giving it back.
///
/// Use: Look until it tells nothing new, Replace, take over what Replace found and Replace again
/// until it finds nothing, Finish.
class BRISQ_API ConfSave {
 public:
  /// Takes the file's lock and clears away what killed saves have left.
  /// @throws mgr_err::Error "file", "locked"
  explicit ConfSave(const std::string& path);
  ~ConfSave();

  /// What the file holds, when that is not what `known` tells; nothing when it is. Waits while
  /// somebody writes into it.
  /// @throws mgr_err::Error "file"; "locked" when writing does not end in time
  std::optional<ConfContent> Look(const ConfStamp& known);

  /// Puts `content` in the place of the file known by `known`.
  /// @return nothing when it is done; else what somebody else has made of the file, from which the
  /// caller must make new content, with the stamp to give to the next Replace
  /// @throws as Look: the file is unchanged
  std::optional<ConfContent> Replace(const ConfSnapshot& content, const ConfStamp& known);

  /// Stamp of the file after the last Replace that put content in its place.
  const ConfStamp& stamp() const noexcept { return stamp_; }

  /// Makes the replacement durable and clears away the old file.
  /// @throws mgr_err::Error "file" that says that the change was made and may be lost
  void Finish();

 private:
  using Replacement = safe_replace::Replacement;

  ConfContent ReadWhenQuiet(const std::string& name);
  Replacement::Outcome Publish(const ConfSnapshot& content, const ConfStamp& known);
  bool PushedOut(const ConfStamp& known) const;
  ConfStamp StampOfTarget() const;

  safe_replace::Target target_;
  ConfLock lock_;
  std::unique_ptr<Replacement> current_;
  std::unique_ptr<Replacement> former_;
  Replacement::Slot slot_ = Replacement::Slot::kFirst;
  ConfStamp stamp_;
  bool finished_ = false;
};
