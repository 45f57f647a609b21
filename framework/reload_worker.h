#pragma once

#include <atomic>
#include <thread>

#include "brisq_export.h"
#include "framework/reload_queue.h"

namespace reloader {

/// Runs a queue's requests when they are due, on a thread of its own: for a server. What fails is
/// logged and tried again. The thread takes no signals. For one thread at a time.
class BRISQ_API Worker {
 public:
  /// Starts the thread; the queue must outlive the worker.
  explicit Worker(Queue& queue = Queue::OfProcess());
  /// Waits for a run that goes on; what is still due stays in the store.
  ~Worker();
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

 private:
  void Work();

  Queue& queue_;
  std::atomic<bool> stop_ = false;
  std::thread thread_;
};

}  // namespace reloader
