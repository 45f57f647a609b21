#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "brisq_export.h"
#include "framework/conf_stamp.h"

namespace brisq_panel {

/// Observes what a mail back-end does while it refreshes, through the calls that it makes to the
/// panel: which file it looked at, which names it looked up. Watches the thread that made it, while
/// it lives; one at a time.
class BRISQ_API RefreshWatch {
 public:
  struct File {
    std::string path;
    ConfStamp stamp;  ///< at the time when it was looked at
  };

  /// @param last_mailbox  number of the newest mailbox; younger ones are not swept, as they may
  /// have been made behind the walk
  explicit RefreshWatch(int last_mailbox);
  ~RefreshWatch();
  RefreshWatch(const RefreshWatch&) = delete;
  RefreshWatch& operator=(const RefreshWatch&) = delete;

  /// Files that the back-end asked about.
  const std::vector<File>& files() const noexcept { return files_; }
  /// True when one of them had changed, so that the whole of it was walked.
  bool walked() const noexcept { return walked_; }
  /// Names that were looked up during the walk, up to the sweep that ends it: the file's lines.
  std::size_t lines() const noexcept { return lines_; }
  /// Names that were looked up outside of a walk: those for which there are figures.
  std::size_t figures() const noexcept { return figures_; }
  /// Those among them that are no mailbox of the panel.
  const std::vector<std::string>& unknown() const noexcept { return unknown_; }

  /// "PATH, line N: REASON" of lines whose mailboxes the sweep left, as they can't be read.
  const std::vector<std::string>& spared() const noexcept { return spared_; }

  /// True when password work was put off to a later refresh, which must walk for it.
  bool put_off() const noexcept { return put_off_; }

  /// Called by the panel's interfaces; do nothing on a thread that nobody watches.
  static void SawFile(const std::string& path, const ConfStamp& stamp, bool changed);
  static void SawName(const std::string& name, bool known);
  static void SawSweep() noexcept;
  static void SawPutOff() noexcept;
  static void SawSpared(const std::string& line);
  /// Files that the back-end asked about so far; none on a thread that nobody watches.
  static std::vector<std::string> PathsSeen();
  /// What is to be added to the condition of a sweep; empty on a thread that nobody watches.
  static std::string SweepLimit();

 private:
  std::vector<File> files_;
  std::vector<std::string> unknown_;
  std::vector<std::string> spared_;
  std::size_t lines_ = 0;
  std::size_t figures_ = 0;
  int last_mailbox_;
  bool walked_ = false;
  bool swept_ = false;
  bool put_off_ = false;
};

}  // namespace brisq_panel
