#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "brisq_export.h"
#include "framework/descriptor.h"

namespace mgr_proc {

/// Where programs are looked for: by the host for a child, and by the child for its own.
inline constexpr char kProgramFolders[] =
    "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

/// A pipe whose ends lie above descriptors 0, 1 and 2 and are closed in every child.
struct BRISQ_API Pipe {
  /// @throws std::system_error when the system has none left
  static Pipe Make();

  Descriptor read;
  Descriptor write;
};

/// One child process from its start to the collection of its exit status.
///
/// It never stays behind: a child that has not been collected at the end of the object's life is
/// killed with its group. One that can't die at once, because the kernel holds it, is collected
/// when a later child starts. For one thread at a time.
class BRISQ_API Child {
 public:
  /// What Collect gives when somebody else has taken the status.
  static constexpr int kStatusTaken = -1;

  /// Starts a program in a process group of its own with the given descriptors as 0, 1 and 2, no
  /// other descriptor, default signal dispositions, no blocked signal, and an environment of PATH
  /// (kProgramFolders), HOME ("/") and LC_ALL ("C") alone. Its working directory is "/"; umask and
  /// limits are the caller's.
  ///
  /// @param words  the program and its arguments; a program without a slash is looked for in
  ///               kProgramFolders
  /// @throws std::system_error when it can't be started, std::runtime_error when somebody else
  /// could replace it (safe_program.h), each with a text that names the program
  Child(std::vector<std::string> words, int in, int out, int err);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  pid_t pid() const noexcept { return pid_; }

  /// Descriptor that poll(2) shows as readable from the child's end on; -1 when the child has ended
  /// and somebody else has taken its status already.
  int pidfd() const noexcept { return pidfd_.get(); }

  /// Takes the exit status of a child that has ended: 0 to 255, 128 + n after signal n, or
  /// kStatusTaken.
  int Collect() noexcept;

  /// Kills what is left of the group of a collected child. A daemon on its way out of the group
  /// gets up to 100 ms for that: its parent ends before it has left. Returns at once when nobody is
  /// left.
  void EndGroup() noexcept;

  /// Kills the whole group and, unless it has been collected, the child itself, wherever it has
  /// gone; then waits for its end and collects it.
  /// @param patience  milliseconds to wait: far more than it takes, unless the kernel holds the
  /// child
  void Kill(int patience = 400) noexcept;

 private:
  pid_t pid_ = -1;
  Descriptor pidfd_;
  bool collected_ = false;
};

}  // namespace mgr_proc
