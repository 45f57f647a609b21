#include "brisq/password_input.h"

#include <string.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <iostream>

#include "mgr_err.h"

namespace brisq {
namespace {

constexpr std::size_t kMost = 4096;

constexpr std::array kEnding = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

// Keeps what is typed off the screen. A signal that ends the program while it lives, such as
// Ctrl-C, leaves the terminal as it was, too. One at a time.
class NoEcho {
 public:
  NoEcho() {
    known_ = tcgetattr(STDIN_FILENO, &before_) == 0;
    if (!known_) return;
    GiveBackAtSignals();
    termios quiet = before_;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
  }
  ~NoEcho() {
    if (!known_) return;
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
    for (std::size_t i = 0; i < kEnding.size(); ++i) sigaction(kEnding[i], &actions_[i], nullptr);
  }
  NoEcho(const NoEcho&) = delete;
  NoEcho& operator=(const NoEcho&) = delete;

 private:
  // Those that are ignored stay so.
  void GiveBackAtSignals() {
    struct sigaction give_back {};
    give_back.sa_handler = &GiveBack;
    for (std::size_t i = 0; i < kEnding.size(); ++i) {
      sigaction(kEnding[i], nullptr, &actions_[i]);
      if (actions_[i].sa_handler == SIG_DFL) sigaction(kEnding[i], &give_back, nullptr);
    }
  }
  // It is obeyed when the handler is left.
  static void GiveBack(int signal) {
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
    std::signal(signal, SIG_DFL);
    raise(signal);
  }

  static inline termios before_{};
  bool known_ = false;
  std::array<struct sigaction, kEnding.size()> actions_{};
};

std::string Ask(const Console& console, const char* question) {
  console.err << question << std::flush;
  std::string answer;
  std::getline(console.in, answer);
  console.err << "\n";
  return answer;
}

std::string AskTwice(const Console& console) {
  NoEcho quiet;
  std::string password = Ask(console, "Password: ");
  std::string again = Ask(console, "Once more: ");
  const bool same = password == again;
  explicit_bzero(again.data(), again.size());
  if (!same) throw mgr_err::Error("value", "password", "the two entries differ");
  return password;
}

std::string ReadToEnd(std::istream& in) {
  std::string text;
  text.reserve(kMost + 1);
  for (char c = 0; text.size() <= kMost && in.get(c);) text += c;
  if (text.size() > kMost) throw mgr_err::Error("value", "password", "too long (max 4096 bytes)");
  if (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

}  // namespace

std::string ReadPassword(const Console& console) {
  std::string password = console.interactive ? AskTwice(console) : ReadToEnd(console.in);
  if (password.empty()) throw mgr_err::Error("value", "password", "must not be empty");
  return password;
}

}  // namespace brisq
