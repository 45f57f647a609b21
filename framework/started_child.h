#pragma once

#include <string>

#include "brisq_export.h"
#include "framework/child_process.h"
#include "framework/descriptor.h"
#include "framework/secret_buffer.h"

namespace mgr_proc {

/// Whether a command line is given to a shell.
enum class Shell {
  kIfNeeded,  ///< as "/bin/sh -c" runs it; one that holds nothing for a shell to do starts directly
  kNone       ///< split at spaces
};

/// A child that runs a command line, with our ends of its pipes. For one thread at a time.
struct BRISQ_API StartedChild {
  /// Starts the child; input of up to one pipe buffer (64 KiB) lies in the pipe before it exists.
  /// @param input  what it is to read, to its end; wiped when it has been sent
  /// @throws std::system_error when it can't be started, std::runtime_error when somebody else
  /// could replace the program
  StartedChild(const std::string& command, Shell shell, SecretBuffer& input);

  Descriptor in;  ///< closed when the child has its input already
  Descriptor out;
  Descriptor err;
  Child child;

 private:
  struct Pipes;
  StartedChild(const std::string& command, Shell shell, SecretBuffer& input, Pipes pipes);
};

}  // namespace mgr_proc
