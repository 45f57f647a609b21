#include "framework/reload_worker.h"

#include <chrono>
#include <exception>

#include "framework/no_signals.h"
#include "mgr_log.h"

namespace reloader {

namespace {

mgr_log::Module log_channel("reload", "brisq");

constexpr std::chrono::milliseconds kAfterFailure{5000};

// Runs what is due; what fails here is the store or a lock, which needs time to recover.
std::chrono::milliseconds RunOrLog(Queue& queue) {
  try {
    return queue.RunByClock();
  } catch (const std::exception& error) {
    if (log_channel.Check(mgr_log::kError)) {
      log_channel.Write(mgr_log::kError, "reloads are stuck: %s", error.what());
    }
    return kAfterFailure;
  }
}

}  // namespace

Worker::Worker(Queue& queue) : queue_(queue) {
  const NoSignals in_the_worker;
  thread_ = std::thread([this] { Work(); });
}

Worker::~Worker() {
  stop_ = true;
  queue_.Wake();
  thread_.join();
}

void Worker::Work() {
  while (!stop_) {
    queue_.Wait(RunOrLog(queue_));
  }
}

}  // namespace reloader
