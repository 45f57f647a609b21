#include "framework/plugin_probe.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "framework/descriptor.h"
#include "mgr_err.h"

namespace {

using Clock = std::chrono::steady_clock;

// Ends what the child writes: an answer without it was cut short.
constexpr char kEnd = '\0';

mgr_err::Error CannotStart(const char* call) {
  return mgr_err::Error("plugin", "test load", std::string(call) + ": " + std::strerror(errno));
}

[[noreturn]] void Answer(int out, const std::function<std::string()>& attempt) {
  const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    ::dup2(null, stream);
  }
  const std::string text = attempt() + kEnd;
  std::string_view rest = text;
  while (!rest.empty()) {
    const ssize_t written = ::write(out, rest.data(), rest.size());
    if (written <= 0) {
      break;
    }
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
  ::_exit(0);
}

bool WaitForInput(int fd, Clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  pollfd poll_fd = {fd, POLLIN, 0};
  const int result = ::poll(&poll_fd, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
  return result > 0 || (result < 0 && errno == EINTR);
}

// What the child wrote until it ended, said its last, or the time was over.
std::string ReadAnswer(int in, Clock::time_point deadline) {
  std::string answer;
  std::array<char, 4096> buffer;
  while (!answer.ends_with(kEnd) && WaitForInput(in, deadline)) {
    const ssize_t got = ::read(in, buffer.data(), buffer.size());
    if (got == 0 || (got < 0 && errno != EINTR)) {
      break;
    }
    answer.append(buffer.data(), got < 0 ? 0 : static_cast<std::size_t>(got));
  }
  return answer;
}

std::string Ending(int status) {
  if (WIFSIGNALED(status)) {
    return std::string("ends the process by signal ") + std::to_string(WTERMSIG(status)) + " (" +
           ::strsignal(WTERMSIG(status)) + ")";
  }
  return "ends the process with status " + std::to_string(WEXITSTATUS(status));
}

int WaitFor(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

}  // namespace

std::string RunInChild(const std::function<std::string()>& attempt, int limit_seconds) {
  std::array<int, 2> ends;
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw CannotStart("pipe");
  }
  const Descriptor in(ends[0]);
  Descriptor out(ends[1]);
  const pid_t child = ::fork();
  if (child < 0) {
    throw CannotStart("fork");
  }
  if (child == 0) {
    Answer(out.get(), attempt);
  }
  out.Close();
  const auto deadline = Clock::now() + std::chrono::seconds(limit_seconds);
  std::string answer = ReadAnswer(in.get(), deadline);
  const bool complete = answer.ends_with(kEnd);
  const bool late = !complete && Clock::now() >= deadline;
  if (complete || late) {
    // An ending in peace is of no interest any more.
    ::kill(child, SIGKILL);
  }
  const int status = WaitFor(child);
  if (complete) {
    answer.pop_back();
    return answer;
  }
  return late ? "does not return within " + std::to_string(limit_seconds) + " s" : Ending(status);
}
