#pragma once

#include <memory>
#include <string>

#include "brisq_export.h"
#include "framework/started_child.h"

namespace mgr_proc {

/// A command that runs already when somebody is about to ask for its outcome: the next
/// Execute(command, 2) of the process takes it over, at whatever point it has come to by then, and
/// counts its time limit from there. One that nobody has taken over ends with the object.
///
/// For a command that only looks: it runs even when nobody comes to ask. Any thread.
class BRISQ_API Ahead {
 public:
  /// Starts the command as Execute would. When it can't be started, the one who asks gets to know
  /// why: nothing is thrown.
  explicit Ahead(const std::string& command);
  ~Ahead();
  Ahead(const Ahead&) = delete;
  Ahead& operator=(const Ahead&) = delete;

  /// The child that runs this command ahead, which is the caller's from now on; null for none.
  static std::unique_ptr<StartedChild> Take(const std::string& command);

 private:
  const std::string command_;
  std::unique_ptr<StartedChild> child_;
};

}  // namespace mgr_proc
