#include "mgr_proc.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <optional>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "framework/number.h"
#include "framework/proc_ahead.h"
#include "framework/pump.h"
#include "framework/secret_buffer.h"
#include "framework/secret_text.h"
#include "framework/started_child.h"
#include "mgr_cf.h"
#include "mgr_err.h"
#include "mgr_log.h"

namespace mgr_proc {

namespace {

mgr_log::Module logger("proc", "dormel");

constexpr int kShell = 2;
constexpr int kNoShell = 3;

constexpr int kEndedByHost = 124;
constexpr int kStatusTaken = 125;
constexpr int kNotStarted = 127;
constexpr int kSignalBase = 128;

constexpr std::size_t kKeptOutput = std::size_t{64} << 20;
// Nobody has a conversation of this size with a tool.
constexpr std::size_t kKeptAnswer = std::size_t{256} << 10;
constexpr std::size_t kKeptErrors = std::size_t{64} << 10;
// Longest text of a failure, of which beginning and end tell the most.
constexpr std::size_t kFailureBegin = 1200;
constexpr std::size_t kFailureEnd = 800;
// More is no password, and looking for each of its lines would take long.
constexpr std::size_t kLargestSecret = std::size_t{16} << 10;

constexpr double kDefaultLimit = 60;
constexpr double kLongestLimit = 365.0 * 24 * 3600;

double LimitInSeconds() {
  const std::optional<double> seconds = ReadNumber(mgr_cf::GetParam("ExecTimeout"));
  return seconds && *seconds > 0 ? std::min(*seconds, kLongestLimit) : kDefaultLimit;
}

std::string OutOfTime(double limit) {
  std::ostringstream text;
  text << "no answer in " << limit << " s, ended";
  return text.str();
}

std::string TooMuch() {
  return "unexpected output of more than " + std::to_string(kKeptAnswer >> 10) + " KiB, ended";
}

bool IsSignal(int result) { return result > kSignalBase && result < kSignalBase + NSIG; }

std::string EndOf(int result) {
  std::string text = "ended with exit status " + std::to_string(result);
  if (IsSignal(result)) {
    const int signal = result - kSignalBase;
    text += " (signal " + std::to_string(signal) + ", " + ::strsignal(signal) + ")";
  }
  return text;
}

bool SaysNothing(const std::string& text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return (c >= 0 && c <= ' ') || c == '\x7f'; });
}

std::string Shortened(const std::string& text) {
  if (text.size() <= kFailureBegin + kFailureEnd) {
    return text;
  }
  const std::size_t left_out = text.size() - kFailureBegin - kFailureEnd;
  return text.substr(0, kFailureBegin) + " [" + std::to_string(left_out) + " bytes left out] " +
         text.substr(text.size() - kFailureEnd);
}

std::chrono::steady_clock::time_point DeadlineAfter(double seconds) {
  return std::chrono::steady_clock::now() +
         std::chrono::microseconds(static_cast<std::int64_t>(seconds * 1e6));
}

}  // namespace

class Execute::Run {
 public:
  Run(std::string command, int mode)
      : command_(std::move(command)),
        mode_(mode),
        output_(mode == kNoShell ? kKeptAnswer : kKeptOutput),
        errors_(kKeptErrors) {}

  int mode() const { return mode_; }
  std::ostream& in() { return in_; }

  int Result();
  std::string Str();

 private:
  void Start();
  std::unique_ptr<StartedChild> StartChild();
  int RunChild();
  int Watch(Child& child, Pump& pump);
  bool HasFlooded() const;
  void NoteFailure();
  void LogErrors(pid_t pid) const;
  void LogSilence(pid_t pid, int result) const;
  void LogLoss(pid_t pid) const;

  std::string command_;
  int mode_;
  SecretBuffer input_;
  std::ostream in_{&input_};
  bool started_ = false;
  int result_ = kNotStarted;
  Sink output_;
  Sink errors_;
  MaskedSecret secret_;  // input that a failure must not show
  std::string failure_;  // what a child that failed printed, in mode 3
  std::string remark_;   // what the child could not say itself
};

int Execute::Run::Result() {
  if (!started_) {
    started_ = true;
    Start();
  }
  return result_;
}

std::string Execute::Run::Str() {
  const bool failed = Result() != 0 && mode_ == kNoShell;
  std::string text = failed ? failure_ : output_.Text();
  if (!remark_.empty() && !text.empty() && text.back() != '\n') {
    text += '\n';
  }
  return text + remark_;
}

void Execute::Run::Start() {
  input_.Close();
  if (input_.Text().size() <= kLargestSecret) {
    secret_ = MaskedSecret(input_.Text());
  }
  try {
    result_ = RunChild();
  } catch (const std::runtime_error& error) {
    remark_ = error.what();
  }
  input_.Wipe();
  NoteFailure();
}

// A tool may show its input when it fails, and a failure's text reaches terminals and logs.
void Execute::Run::NoteFailure() {
  if (mode_ != kNoShell || result_ == 0) {
    return;
  }
  SecretBuffer secret;
  secret_.Reveal(secret);
  std::string output = output_.Text();
  if (output_.dropped() > 0) {
    output = WithoutTornSecret(output, secret.Text());
  }
  const std::string text = WithoutSecrets(output + errors_.Text(), secret.Text());
  failure_ = Shortened(WithoutTornSecret(text, secret.Text()));
  const bool silent = SaysNothing(text);
  if (silent) {
    failure_.clear();
  }
  // Who is ended by a signal has not come to say so.
  if (remark_.empty() && (silent || IsSignal(result_))) {
    remark_ = EndOf(result_) + (silent ? " without a word" : "");
  }
}

// Half of an answer must not pass for the whole.
bool Execute::Run::HasFlooded() const { return mode_ == kNoShell && output_.dropped() > 0; }

std::unique_ptr<StartedChild> Execute::Run::StartChild() {
  const bool shell = mode_ == kShell;
  std::unique_ptr<StartedChild> ahead =
      shell ? Ahead::Take(command_) : Ahead::Take(command_, input_.Text());
  if (ahead) {
    input_.Wipe();
    return ahead;
  }
  return std::make_unique<StartedChild>(command_, shell ? Shell::kIfNeeded : Shell::kNone, input_);
}

int Execute::Run::RunChild() {
  const std::unique_ptr<StartedChild> started = StartChild();
  Child& child = started->child;
  if (logger.Check(mgr_log::kDebug)) {
    logger.Write(mgr_log::kDebug, "child %d: %s", child.pid(), command_.c_str());
  }
  Pump pump(std::move(started->in), input_, {std::move(started->out), &output_, mode_ == kNoShell},
            {std::move(started->err), &errors_});
  const int result = Watch(child, pump);
  LogErrors(child.pid());
  LogSilence(child.pid(), result);
  LogLoss(child.pid());
  return result;
}

int Execute::Run::Watch(Child& child, Pump& pump) {
  const double limit = LimitInSeconds();
  if (!pump.RunUntilEnd(child.pidfd(), DeadlineAfter(limit))) {
    child.Kill();
    remark_ = HasFlooded() ? TooMuch() : OutOfTime(limit);
    return kEndedByHost;
  }
  const int status = child.Collect();
  child.EndGroup();
  pump.Drain();
  if (status == Child::kStatusTaken) {
    remark_ = "exit status taken by another part of the program";
    return kStatusTaken;
  }
  if (HasFlooded()) {
    remark_ = TooMuch();
    return kEndedByHost;
  }
  return status;
}

void Execute::Run::LogErrors(pid_t pid) const {
  if (mode_ != kShell || !logger.Check(mgr_log::kWarning)) {
    return;
  }
  std::istringstream lines(errors_.Text());
  for (std::string line; std::getline(lines, line);) {
    logger.Write(mgr_log::kWarning, "child %d: %s", pid, line.c_str());
  }
  if (errors_.dropped() > 0) {
    logger.Write(mgr_log::kWarning, "child %d: %zu bytes of standard error dropped", pid,
                 errors_.dropped());
  }
}

// Who logs the output of a child that failed would say nothing.
void Execute::Run::LogSilence(pid_t pid, int result) const {
  if (mode_ == kShell && result != 0 && SaysNothing(output_.Text()) &&
      SaysNothing(errors_.Text()) && logger.Check(mgr_log::kWarning)) {
    const std::string end = remark_.empty() ? EndOf(result) + " without a word" : remark_;
    const std::string program = command_.substr(0, command_.find(' '));
    logger.Write(mgr_log::kWarning, "child %d: %s: %s", pid, program.c_str(), end.c_str());
  }
}

// Worth a line, since the caller takes what is left for the whole.
void Execute::Run::LogLoss(pid_t pid) const {
  if (output_.dropped() > 0 && !HasFlooded() && logger.Check(mgr_log::kWarning)) {
    logger.Write(mgr_log::kWarning, "child %d: %zu bytes of standard output dropped", pid,
                 output_.dropped());
  }
}

Execute::Execute(const std::string& command, int mode) {
  if (mode != kShell && mode != kNoShell) {
    throw mgr_err::Error("internal", "mgr_proc::Execute",
                         "mode must be 2 or 3, not " + std::to_string(mode));
  }
  run_ = std::make_unique<Run>(command, mode);
}

Execute::~Execute() = default;

std::ostream& Execute::In() {
  if (run_->mode() == kShell) {
    throw mgr_err::Error("internal", "mgr_proc::Execute", "mode 2 has no input");
  }
  return run_->in();
}

int Execute::Result() { return run_->Result(); }

std::string Execute::Str() { return run_->Str(); }

}  // namespace mgr_proc
