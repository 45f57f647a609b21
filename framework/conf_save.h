#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "brisq_export.h"
#include "framework/conf_document.h"
#include "framework/conf_lock.h"
#include "framework/conf_stamp.h"
#include "framework/descriptor.h"
#include "framework/safe_replace.h"
#include "framework/writer_watch.h"

/// The disk's side of saving a file, from taking its lock to giving it back.
///
/// Use: Look, then Replace until it finds nothing, each time with content into which what was found
/// has been merged, then Finish. When one of them throws, Abandon.
class BRISQ_API ConfSave {
 public:
  /// Takes the file's lock and clears away what killed saves have left.
  /// @throws mgr_err::Error "file", "locked"
  explicit ConfSave(const std::string& path);
  ~ConfSave();
  ConfSave(const ConfSave&) = delete;
  ConfSave& operator=(const ConfSave&) = delete;

  /// What the file holds, when that may not be what `known` tells; nothing when it is. Waits while
  /// somebody writes into it.
  /// @throws mgr_err::Error "file"; "locked" when writing does not end in time
  std::optional<ConfContent> Look(const ConfStamp& known);

  /// Puts `content` in the place of the file known by `known`, durably.
  /// @param first  called before that, while the disk works on the new file: for what must be
  /// durable before the content can be seen. What it throws ends the call with nothing put in place
  /// @return nothing when it is done; else what somebody else has made of the file, with the stamp
  /// to give to the next Replace
  /// @throws as Look: whether the file has our content is what Abandon tells
  std::optional<ConfContent> Replace(const ConfSnapshot& content, const ConfStamp& known,
                                     const std::function<void()>& first = {});

  /// How many times content of ours was put in place. What a later Replace finds was made from the
  /// last of it.
  std::size_t Placements() const noexcept { return placements_; }
  /// Stamp of the file after the last Replace that put content in its place.
  const ConfStamp& stamp() const noexcept { return stamp_; }

  /// Ends without success: puts back what was pushed out, unless what is in place has taken over
  /// somebody's edit meanwhile.
  /// @return false when it is not put back, so that the file has our content all the same; what it
  /// pushed out then stays beside it for the next save
  bool Abandon() noexcept;

  /// Clears away the old file. In a request its bytes are given back when that has ended: nobody
  /// need wait for it.
  /// @throws mgr_err::Error "doubt": the change was made and may be lost on a power failure
  void Finish();

 private:
  using Replacement = safe_replace::Replacement;
  using Outcome = Replacement::Outcome;

  void SaveLeftover(Replacement::Slot slot);
  ConfContent ReadWhenQuiet(const std::string& name, bool may_be_missing);
  static void WriteNew(Replacement& fresh, const ConfSnapshot& content, int old,
                       const struct stat& info);
  Outcome Publish(const ConfSnapshot& content, const ConfStamp& known,
                  const std::function<void()>& first);
  bool IsUndisturbed(const ConfStamp& known) const;
  void SyncDirectory();
  ConfStamp StampOf(const std::string& name) const;

  safe_replace::Target target_;
  ConfLock lock_;
  // The replacement that is in place, and the one before, each with what it pushed out.
  std::unique_ptr<Replacement> current_;
  std::unique_ptr<Replacement> former_;
  // The file that the current one pushed out, and those who want to write into it.
  Descriptor pushed_out_;
  std::unique_ptr<WriterWatch> watch_;
  Replacement::Slot slot_ = Replacement::Slot::kFirst;
  std::size_t placements_ = 0;
  ConfStamp stamp_;
  std::exception_ptr doubt_;
  bool finished_ = false;
};
