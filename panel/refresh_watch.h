#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "brisq_export.h"

namespace brisq_panel {

/// Observes what a mail back-end does while it refreshes, through the calls that it makes to the
/// panel: which file it looked at, which names it looked up. Watches the thread that made it, while
/// it lives; one at a time.
class BRISQ_API RefreshWatch {
 public:
  struct File {
    std::string path;
    std::string stamp;  ///< at the time when it was looked at; empty when it was missing
  };

  RefreshWatch();
  ~RefreshWatch();
  RefreshWatch(const RefreshWatch&) = delete;
  RefreshWatch& operator=(const RefreshWatch&) = delete;

  /// Files that the back-end asked about.
  const std::vector<File>& files() const noexcept { return files_; }
  /// True when one of them had changed, so that the whole of it was walked.
  bool walked() const noexcept { return walked_; }
  /// Names that were looked up during the walk, up to the sweep that ends it: the file's lines.
  std::size_t lines() const noexcept { return lines_; }
  /// Those among them that are no mailbox of the panel.
  const std::vector<std::string>& unknown() const noexcept { return unknown_; }

  /// Called by the panel's interfaces; do nothing on a thread that nobody watches.
  static void SawFile(const std::string& path, const std::string& stamp, bool changed);
  static void SawName(const std::string& name, bool known);
  static void SawSweep() noexcept;

 private:
  std::vector<File> files_;
  std::vector<std::string> unknown_;
  std::size_t lines_ = 0;
  bool walked_ = false;
  bool swept_ = false;
};

}  // namespace brisq_panel
