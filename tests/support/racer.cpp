#include "tests/support/racer.h"

#include <grp.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <new>
#include <stdexcept>

namespace support {

namespace {

std::atomic<unsigned>* SharedCounter() {
  void* memory = ::mmap(nullptr, sizeof(std::atomic<unsigned>), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    throw std::runtime_error("no memory for a racer");
  }
  return new (memory) std::atomic<unsigned>(0);
}

}  // namespace

Racer::Racer(uid_t uid, const std::function<void()>& step)
    : steps_(SharedCounter()), child_(::fork()) {
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
    steps_->fetch_add(1);
  }
}

Racer::~Racer() {
  ::kill(child_, SIGKILL);
  ::waitpid(child_, nullptr, 0);
  ::munmap(steps_, sizeof *steps_);
}

void Racer::WaitForStep() const {
  // The step that is under way may have done its part before the call.
  const unsigned enough = steps_->load() + 2;
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (static_cast<int>(enough - steps_->load()) > 0) {
    if (std::chrono::steady_clock::now() > end) {
      throw std::runtime_error("a racer stands still");
    }
    ::sched_yield();
  }
}

}  // namespace support
