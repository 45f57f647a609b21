#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <iostream>

#include "brisq/program.h"

namespace {

// What would end the process in the middle of a request becomes an error of the call instead, and
// no core file holds a password.
void StayAliveAndClosed() {
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  prctl(PR_SET_DUMPABLE, 0);
}

}  // namespace

int main(int argc, char** argv) {
  StayAliveAndClosed();
  const brisq::Console console{std::cin, std::cout, std::cerr, isatty(STDIN_FILENO) == 1};
  return brisq::RunProgram({argv + 1, argv + argc}, console);
}
