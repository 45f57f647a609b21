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
#include <exception>
#include <optional>
#include <string_view>
#include <utility>

#include "mgr_err.h"

namespace {

using Clock = std::chrono::steady_clock;

// Ends what the child writes: an answer without it was cut short.
constexpr char kEnd = '\0';

mgr_err::Error CannotStart(const char* call) {
  return mgr_err::Error("plugin", "test load", std::string(call) + ": " + std::strerror(errno));
}

// Where the child, which has one thread, writes its answer.
int answer_fd = -1;

[[noreturn]] void Answer(const std::string& text) {
  const std::string whole = text + kEnd;
  std::string_view rest = whole;
  while (!rest.empty()) {
    const ssize_t written = ::write(answer_fd, rest.data(), rest.size());
    if (written <= 0) {
      break;
    }
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
  ::_exit(0);
}

[[noreturn]] void AnswerUncaught() {
  const std::exception_ptr thrown = std::current_exception();
  if (!thrown) {
    std::abort();
  }
  try {
    std::rethrow_exception(thrown);
  } catch (const std::exception& error) {
    Answer(std::string("throws an exception that nobody catches: ") + error.what());
  } catch (...) {
    Answer("throws something that is no exception and that nobody catches");
  }
}

[[noreturn]] void AnswerBy(const std::function<std::string()>& attempt) {
  const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    ::dup2(null, stream);
  }
  std::set_terminate(&AnswerUncaught);
  std::string text;
  // Caught here and nowhere above: what the parent's code would do with it is not meant.
  try {
    text = attempt();
  } catch (...) {
    AnswerUncaught();
  }
  Answer(text);
}

// False when the time is over.
bool WaitForInput(int fd, Clock::time_point deadline) {
  while (true) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd poll_fd = {fd, POLLIN, 0};
    const int result =
        ::poll(&poll_fd, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
    if (result >= 0 || errno != EINTR) {
      return result != 0;
    }
  }
}

// What the child wrote until it ended or said its last; nothing when the time was over before.
std::optional<std::string> ReadAnswer(int in, Clock::time_point deadline) {
  std::string answer;
  std::array<char, 4096> buffer;
  while (!answer.ends_with(kEnd)) {
    if (!WaitForInput(in, deadline)) {
      return std::nullopt;
    }
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

TrialRun::TrialRun(const std::function<std::string()>& attempt, int limit_seconds)
    : limit_seconds_(limit_seconds), deadline_(Clock::now() + std::chrono::seconds(limit_seconds)) {
  std::array<int, 2> ends;
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw CannotStart("pipe");
  }
  in_ = Descriptor(ends[0]);
  const Descriptor out(ends[1]);
  child_ = ::fork();
  if (child_ < 0) {
    throw CannotStart("fork");
  }
  if (child_ == 0) {
    answer_fd = out.get();
    AnswerBy(attempt);
  }
}

TrialRun::~TrialRun() {
  if (child_ > 0) {
    End();
  }
}

// Nothing more is wanted of the child, and how it ended by itself can't change any more.
int TrialRun::End() noexcept {
  ::kill(child_, SIGKILL);
  return WaitFor(std::exchange(child_, -1));
}

std::string TrialRun::Answer() {
  std::optional<std::string> answer = ReadAnswer(in_.get(), deadline_);
  const int status = End();
  if (!answer) {
    return "does not return within " + std::to_string(limit_seconds_) + " s";
  }
  if (!answer->ends_with(kEnd)) {
    return Ending(status);
  }
  answer->pop_back();
  return *answer;
}
