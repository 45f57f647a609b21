#include "brisq/editor.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <system_error>

#include "mgr_err.h"

namespace brisq {
namespace {

constexpr const char* kSensible = "/usr/bin/sensible-editor";

std::string Given(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : value;
}

/// While it lives this process ignores the keyboard's signals.
class KeyboardIgnored {
 public:
  KeyboardIgnored() {
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGINT, &ignore, &interrupt_);
    sigaction(SIGQUIT, &ignore, &quit_);
  }
  ~KeyboardIgnored() {
    sigaction(SIGINT, &interrupt_, nullptr);
    sigaction(SIGQUIT, &quit_, nullptr);
  }
  KeyboardIgnored(const KeyboardIgnored&) = delete;
  KeyboardIgnored& operator=(const KeyboardIgnored&) = delete;

 private:
  struct sigaction interrupt_ {};
  struct sigaction quit_ {};
};

pid_t Spawn(const std::string& command, const std::string& file) {
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t usual;
  sigemptyset(&usual);
  posix_spawnattr_setsigmask(&attributes, &usual);
  for (const int signal : {SIGINT, SIGQUIT, SIGPIPE, SIGXFSZ}) sigaddset(&usual, signal);
  posix_spawnattr_setsigdefault(&attributes, &usual);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  // The file is an argument of its own, so that no name can be taken for shell.
  const std::string line = command + " \"$1\"";
  const char* words[] = {"sh", "-c", line.c_str(), "sh", file.c_str(), nullptr};
  pid_t pid = -1;
  const int error =
      posix_spawn(&pid, "/bin/sh", nullptr, &attributes, const_cast<char* const*>(words), environ);
  posix_spawnattr_destroy(&attributes);
  if (error != 0)
    throw mgr_err::Error("file", "editor",
                         "can't be started: " + std::generic_category().message(error));
  return pid;
}

}  // namespace

std::string EditorCommand(const Console& console) {
  for (const char* name : {"VISUAL", "EDITOR"})
    if (std::string command = Given(name); !command.empty()) return command;
  if (!console.interactive)
    throw mgr_err::Error("usage", "", "without a terminal this needs VISUAL or EDITOR to be set");
  return access(kSensible, X_OK) == 0 ? kSensible : "vi";
}

void RunEditor(const std::string& command, const std::string& file) {
  const KeyboardIgnored ignored;
  const pid_t pid = Spawn(command, file);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) throw mgr_err::Error("file", "editor", "its end can't be waited for");
  }
  if (WIFSIGNALED(status))
    throw mgr_err::Error(
        "file", "editor",
        "ended by signal " + std::to_string(WTERMSIG(status)) + "; nothing was changed");
  if (WEXITSTATUS(status) != 0)
    throw mgr_err::Error(
        "file", "editor",
        "ended with " + std::to_string(WEXITSTATUS(status)) + "; nothing was changed");
}

}  // namespace brisq
