#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <iostream>

#include "brisq/program.h"

namespace {

// A file that is opened must not come to stand where the output is written to: what was closed by
// the caller stays unreadable or unwritable, as it was.
void OccupyStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    if (fcntl(stream, F_GETFD) == -1)
      open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);  // the lowest that is free
}

// What would end the process in the middle of a request becomes an error of the call instead.
void StayAlive() {
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
}

// No core file holds a password, neither one of this process nor one of the tools that it gives
// passwords to; and the C library keeps nothing of what was read in a buffer of its own.
void KeepSecrets() {
  prctl(PR_SET_DUMPABLE, 0);
  rlimit cores{};
  getrlimit(RLIMIT_CORE, &cores);
  cores.rlim_cur = 0;  // the hard limit stays: a server that is started from here may raise its own
  setrlimit(RLIMIT_CORE, &cores);
  std::setvbuf(stdin, nullptr, _IONBF, 0);
}

}  // namespace

int main(int argc, char** argv) {
  // Our own files say their mode; those of the tools that are run must depend on no shell's umask.
  umask(S_IWGRP | S_IWOTH);
  OccupyStandardStreams();
  StayAlive();
  KeepSecrets();
  const brisq::Console console{std::cin, std::cout, std::cerr, isatty(STDIN_FILENO) == 1};
  return brisq::RunProgram({argv + 1, argv + argc}, console);
}
