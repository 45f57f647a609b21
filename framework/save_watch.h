#pragma once

#include <string>
#include <vector>

#include "brisq_export.h"
#include "framework/conf_stamp.h"

/// Notes the saves of configuration files that this process makes while it lives, so that a change
/// of a file can be told from somebody else's. Several may live at once. Any thread.
class BRISQ_API SaveWatch {
 public:
  SaveWatch();
  ~SaveWatch();
  SaveWatch(const SaveWatch&) = delete;
  SaveWatch& operator=(const SaveWatch&) = delete;

  /// True when saves of this process alone have led the file from one state to the other; they are
  /// the same when there was none.
  bool Explains(const std::string& path, const ConfStamp& from, const ConfStamp& to) const;

  /// Called after each save.
  /// @param before  the state that the saved content was based on; one that does not exist when
  /// something of somebody else was taken over on the way
  static void Saved(const std::string& path, const ConfStamp& before, const ConfStamp& after);

 private:
  struct Save {
    std::string path;
    ConfStamp before;
    ConfStamp after;
  };

  std::vector<Save> saves_;  // guarded by the lock of the list of watches
};
