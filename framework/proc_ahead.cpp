#include "framework/proc_ahead.h"

#include <algorithm>
#include <list>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace mgr_proc {

namespace {

struct Waiting {
  std::mutex mutex;
  std::list<Ahead*> aheads;
};

Waiting& TheWaiting() {
  static Waiting waiting;
  return waiting;
}

std::unique_ptr<StartedChild> StartIfPossible(const std::string& command) {
  SecretBuffer no_input;
  no_input.Close();
  try {
    return std::make_unique<StartedChild>(command, Shell::kIfNeeded, no_input);
  } catch (const std::runtime_error&) {
    return nullptr;  // the one who asks tries it again, and tells
  }
}

}  // namespace

Ahead::Ahead(const std::string& command) : command_(command), child_(StartIfPossible(command)) {
  const std::lock_guard lock(TheWaiting().mutex);
  TheWaiting().aheads.push_back(this);
}

Ahead::~Ahead() {
  const std::lock_guard lock(TheWaiting().mutex);
  TheWaiting().aheads.remove(this);
}

std::unique_ptr<StartedChild> Ahead::Take(const std::string& command) {
  const std::lock_guard lock(TheWaiting().mutex);
  std::list<Ahead*>& aheads = TheWaiting().aheads;
  const auto found = std::find_if(aheads.begin(), aheads.end(), [&](const Ahead* ahead) {
    return ahead->child_ != nullptr && ahead->command_ == command;
  });
  return found == aheads.end() ? nullptr : std::move((*found)->child_);
}

}  // namespace mgr_proc
