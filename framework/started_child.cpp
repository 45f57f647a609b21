#include "framework/started_child.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <fstream>
#include <sstream>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "framework/pump.h"

namespace mgr_proc {

namespace {

// A file that the system can start by itself; a script without its first line needs a shell.
bool IsBinary(const std::string& path) {
  std::array<char, 4> magic{};
  std::ifstream file(path, std::ios::binary);
  file.read(magic.data(), magic.size());
  return file &&
         std::string_view(magic.data(), magic.size()) ==
             "\x7f"
             "ELF" &&
         ::access(path.c_str(), X_OK) == 0;
}

// True when a shell would do nothing but start the program that the command line begins with, so
// that starting the shell can be saved. Only a program that is given by its path and is there: what
// is to be said of another one is the shell's.
bool NeedsNoShell(const std::string& command) {
  constexpr const char* kPlain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-+@%, ";
  if (!command.starts_with('/') || command.find_first_not_of(kPlain) != std::string::npos) {
    return false;
  }
  return IsBinary(command.substr(0, command.find(' ')));
}

std::vector<std::string> Words(const std::string& command, Shell shell) {
  if (command.find('\0') != std::string::npos) {
    throw std::system_error(EINVAL, std::generic_category(), "can't start a command with a NUL");
  }
  if (shell == Shell::kIfNeeded && !NeedsNoShell(command)) {
    // What follows "--" is the command line even when it begins with "-".
    return {"/bin/sh", "-c", "--", command};
  }
  std::vector<std::string> words;
  std::istringstream line(command);
  for (std::string word; std::getline(line, word, ' ');) {
    if (!word.empty()) {
      words.push_back(word);
    }
  }
  if (words.empty()) {
    throw std::system_error(ENOENT, std::generic_category(), "can't start an empty command");
  }
  return words;
}

}  // namespace

// The child's ends are closed with it, when the child has its own copies.
struct StartedChild::Pipes {
  Pipe in = Pipe::Make();
  Pipe out = Pipe::Make();
  Pipe err = Pipe::Make();
};

StartedChild::StartedChild(const std::string& command, Shell shell, SecretBuffer& input)
    : StartedChild(command, shell, input, Pipes()) {}

StartedChild::StartedChild(const std::string& command, Shell shell, SecretBuffer& input,
                           Pipes pipes)
    : in((SendAhead(pipes.in.write, input), std::move(pipes.in.write))),
      out(std::move(pipes.out.read)),
      err(std::move(pipes.err.read)),
      child(Words(command, shell), pipes.in.read.get(), pipes.out.write.get(),
            pipes.err.write.get()) {}

}  // namespace mgr_proc
