// One command through mgr_proc::Execute beside posix_spawn of the same by a bare loop.
//
// usage: process_bench PAIRS MEGABYTES COMMAND   COMMAND is split at blanks; it gets two lines of
//                                                input; MEGABYTES of memory are held meanwhile

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "bench/measure.h"
#include "mgr_proc.h"

namespace {

constexpr const char* kInput = "a pass phrase\na pass phrase\n";

std::string RunOurs(const std::string& command) {
  mgr_proc::Execute run(command, 3);
  run.In() << kInput;
  if (run.Result() != 0) bench::Fail(command.c_str());
  return run.Str();
}

std::vector<std::string> Words(const std::string& command) {
  std::istringstream line(command);
  std::vector<std::string> words;
  for (std::string word; line >> word;) words.push_back(word);
  return words;
}

pid_t Spawn(std::vector<std::string>& words, int in, int out) {
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
  pid_t pid = -1;
  if (::posix_spawn(&pid, words[0].c_str(), &actions, nullptr, arguments.data(), environ) != 0) {
    bench::Fail("posix_spawn");
  }
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

std::string RunBare(const std::string& command) {
  int in[2];
  int out[2];
  if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) bench::Fail("pipe");
  std::vector<std::string> words = Words(command);
  const pid_t pid = Spawn(words, in[0], out[1]);
  ::close(in[0]);
  ::close(out[1]);
  if (::write(in[1], kInput, std::strlen(kInput)) < 0) bench::Fail("write");
  ::close(in[1]);
  std::string text;
  char part[4096];
  for (ssize_t got = 0; (got = ::read(out[0], part, sizeof part)) > 0;) {
    text.append(part, static_cast<std::size_t>(got));
  }
  ::close(out[0]);
  int status = 0;
  if (::waitpid(pid, &status, 0) != pid || status != 0) bench::Fail(command.c_str());
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fputs("usage: process_bench PAIRS MEGABYTES COMMAND\n", stderr);
    return 2;
  }
  // Written to, so that the system really gives it.
  const std::vector<char> held(static_cast<std::size_t>(bench::Number(argv[2])) << 20, 'x');
  const std::string command = argv[3];
  if (RunOurs(command) != RunBare(command)) {
    std::fputs("the two ways give different output\n", stderr);
    return 1;
  }
  for (long pair = 0; pair < bench::Number(argv[1]); ++pair) {
    const long ours = bench::Nanoseconds([&] { RunOurs(command); });
    const long peer = bench::Nanoseconds([&] { RunBare(command); });
    bench::PrintPair(static_cast<double>(ours), static_cast<double>(peer));
  }
  return 0;
}
