#include "framework/run_gate.h"

#include <utility>

namespace reloader {

RunGate::Pass::Pass(Pass&& other) noexcept
    : gate_(std::exchange(other.gate_, nullptr)), file_(std::move(other.file_)) {}

RunGate::Pass::~Pass() {
  file_.reset();
  if (gate_ != nullptr) {
    gate_->Leave();
  }
}

std::optional<RunGate::Pass> RunGate::Enter(const std::string& lock_file,
                                            std::chrono::milliseconds patience) {
  std::unique_lock<std::mutex> hold(mutex_);
  if (!left_.wait_for(hold, patience, [this] { return !inside_; })) {
    return std::nullopt;
  }
  inside_ = true;
  hold.unlock();
  Pass pass(*this);
  if (!lock_file.empty()) {
    pass.file_ = FileLock::Take(lock_file, patience);
    if (!pass.file_) {
      return std::nullopt;
    }
  }
  return pass;
}

void RunGate::Leave() noexcept {
  const std::lock_guard<std::mutex> hold(mutex_);
  inside_ = false;
  left_.notify_one();
}

}  // namespace reloader
