#pragma once

#include <optional>
#include <string>

#include "framework/conf_stamp.h"

namespace brisq {

/// Takes up changes of the configuration file while a server runs. For one thread at a time.
class ConfigWatch {
 public:
  explicit ConfigWatch(std::string file);

  /// Sets parameters and paths anew when the file has changed since the last look, and by the first
  /// look: it may have changed since the server read it. What modules have read at their start
  /// stays. A file that can't be read or breaks a rule is logged once and changes nothing;
  /// a key that nothing reads is logged once.
  void TakeUpChanges();

 private:
  std::string file_;
  std::optional<ConfStamp> seen_;  // by the last look
};

}  // namespace brisq
