#pragma once

#include <memory>
#include <ostream>
#include <string>

#include "brisq_export.h"

/// Child processes.
namespace mgr_proc {

/// One run of one command.
///
/// The child starts when its outcome is first asked for, by Result() or Str(), unless the host has
/// started the same command in the same mode, and with the same input, ahead: then that child is
/// taken over. By then all input is known: input of up to one pipe buffer (64 KiB) lies whole in
/// the pipe, closed behind it, before the child exists; more is pumped while output is read, so
/// neither side can block the other. A child that leaves its input unread is no error, and SIGPIPE
/// is never raised.
///
/// The child gets descriptors 0, 1 and 2 and no other, the default signal dispositions, a fixed
/// environment (PATH, HOME, LC_ALL), "/" as its working directory and a process group of its own.
/// A program that another user could replace is not started. It may take as many seconds as
/// the parameter "ExecTimeout" says (60 when that is unset or no positive number); then, and in any
/// case when it ends, whatever is left of its group is killed. A grandchild that holds the output
/// open does not delay the return.
///
/// The input may hold a secret: its buffers are wiped as soon as the child has it. Nothing of input
/// or output is logged. In mode 2 a child that fails and prints nothing is logged with its program
/// and its end.
///
/// An object belongs to one thread at a time; several objects may run at once in several threads.
class BRISQ_API Execute {
 public:
  /// Prepares a run and starts nothing.
  ///
  /// @param command  the command line
  /// @param mode     2: `command` is run by "/bin/sh -c", or as that shell would run it: one that
  ///                 names a program by its path and holds nothing for a shell to do starts it
  ///                 directly. Input is empty, standard output is captured and standard error goes
  ///                 to the log. 3: no shell; `command` is split at spaces, the first word is the
  ///                 program (found by PATH when it has no slash), In() is its input, standard
  ///                 output is captured and standard error is kept apart.
  /// @throws mgr_err::Error "internal" for another mode
  Execute(const std::string& command, int mode);

  /// Never waits: a run that was never asked for is never started.
  ~Execute();
  Execute(const Execute&) = delete;
  Execute& operator=(const Execute&) = delete;

  /// Stream on the child's standard input, mode 3 only. What is written after the start is refused
  /// (the stream fails).
  /// @throws mgr_err::Error "internal" in mode 2
  std::ostream& In();

  /// Closes the input, runs the child to its end if that has not happened, and returns the exit
  /// status: 0 to 255; 128 + n when signal n ended it; 124 when the host did, for the time limit
  /// or, in mode 3, for more output than is kept; 127 when it can't be started; 125 when its status
  /// was taken by somebody else (a program that ignores SIGCHLD or waits for any child): never 0
  /// without having seen the child end with 0.
  int Result();

  /// Runs the child as Result() does and returns what it wrote to standard output: at most 64 MiB
  /// in mode 2, whose rest is dropped, and 256 KiB in mode 3, where more is a failure. After a
  /// failure in mode 3 standard error follows, each line of the input that stands in either is
  /// blanked ("***", input of up to 16 KiB), of more than 2,000 bytes the middle is left out, and
  /// what no program says itself is added: exit status or signal of a child that printed nothing
  /// but white space and control characters, or that a signal ended; that it could not be started,
  /// or why the host ended it.
  std::string Str();

 private:
  class Run;
  std::unique_ptr<Run> run_;
};

}  // namespace mgr_proc
