#include "tests/soak/board.h"

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <new>
#include <thread>
#include <utility>

namespace soak {
namespace {

// How many edits' worth of updates the writers may be ahead.
constexpr long kLead = 20;

}  // namespace

Board::Board(std::string path, long updates, long edits)
    : path_(std::move(path)), updates_(updates), edits_(edits) {
  void* const memory =
      ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  Require(memory != MAP_FAILED, "mmap");
  shared_ = new (memory) Shared;
}

Board::~Board() { ::munmap(shared_, sizeof(Shared)); }

Passwords Board::Look() const {
  for (;;) {
    const long before = shared_->rewriting;
    const std::string content = before % 2 == 0 ? ReadRaw(path_) : std::string();
    if (before % 2 == 0 && shared_->rewriting == before) return Parse(content);
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
}

bool Board::UpdateIsDue() const {
  if (shared_->edits_end) return true;
  return shared_->updates * edits_ <= (shared_->edits + kLead) * updates_;
}

bool Board::EditIsDue() const {
  return shared_->updates >= updates_ || shared_->edits * updates_ <= shared_->updates * edits_;
}

void Children::Start(const std::function<void()>& work) {
  std::fflush(stdout);
  const pid_t child = ::fork();
  Require(child >= 0, "fork");
  if (child > 0) {
    children_.push_back(child);
    return;
  }
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  try {
    work();
    ::_exit(0);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "child: %s\n", error.what());
    ::_exit(1);
  }
}

int Children::Wait() {
  int failed = 0;
  for (const pid_t child : children_) {
    int status = 0;
    ::waitpid(child, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) ++failed;
  }
  children_.clear();
  return failed;
}

}  // namespace soak
