#include "framework/due.h"

#include <deque>
#include <exception>
#include <mutex>
#include <optional>

#include "mgr_log.h"
#include "mgr_proc.h"

namespace due {

namespace {

mgr_log::Module log_channel("due", "brisq");

struct Queue {
  std::mutex running;  // held by the thread that runs commands; taken before `mutex`
  std::mutex mutex;
  std::deque<std::string> commands;
};

Queue& TheQueue() {
  static Queue queue;
  return queue;
}

std::optional<std::string> TakeFirst() {
  Queue& queue = TheQueue();
  std::lock_guard guard(queue.mutex);
  if (queue.commands.empty()) {
    return std::nullopt;
  }
  std::string command = std::move(queue.commands.front());
  queue.commands.pop_front();
  return command;
}

void LogFailure(const std::string& command, const std::string& reason) {
  if (log_channel.Check(mgr_log::kError)) {
    log_channel.Write(mgr_log::kError, "command failed: %s: %s", command.c_str(), reason.c_str());
  }
}

void RunCommand(const std::string& command) {
  mgr_proc::Execute run(command, 2);
  const int status = run.Result();
  if (status != 0) {
    LogFailure(command, "exit status " + std::to_string(status));
  } else if (log_channel.Check(mgr_log::kInfo)) {
    log_channel.Write(mgr_log::kInfo, "command done: %s", command.c_str());
  }
}

}  // namespace

void QueueCommand(const std::string& command) {
  Queue& queue = TheQueue();
  std::lock_guard guard(queue.mutex);
  queue.commands.push_back(command);
}

std::size_t QueuedCommands() {
  Queue& queue = TheQueue();
  std::lock_guard guard(queue.mutex);
  return queue.commands.size();
}

void RunQueuedCommands() {
  std::lock_guard running(TheQueue().running);
  while (const std::optional<std::string> command = TakeFirst()) {
    try {
      RunCommand(*command);
    } catch (const std::exception& error) {
      LogFailure(*command, error.what());
    }
  }
}

}  // namespace due
