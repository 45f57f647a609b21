#include "tests/support/racer.h"

#include <grp.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

namespace support {

Racer::Racer(uid_t uid, const std::function<void()>& step) : child_(::fork()) {
  if (child_ < 0) {
    throw std::runtime_error("no child for a racer");
  }
  if (child_ > 0) {
    return;
  }
  if (::setgroups(0, nullptr) != 0 || ::setresgid(uid, uid, uid) != 0 ||
      ::setresuid(uid, uid, uid) != 0) {
    ::_exit(1);
  }
  // Behind the change of user, which clears it.
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  while (true) {
    step();
  }
}

Racer::~Racer() {
  ::kill(child_, SIGKILL);
  ::waitpid(child_, nullptr, 0);
}

}  // namespace support
