#include <fmt/format.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>

#include "brisq/command_groups.h"
#include "brisq/config_watch.h"
#include "brisq/output.h"
#include "brisq/serve_actions.h"
#include "framework/descriptor.h"
#include "framework/reload_queue.h"
#include "framework/reload_worker.h"
#include "framework/scheduler.h"
#include "mgr_cf.h"
#include "mgr_err.h"
#include "panel/recovery.h"

namespace brisq {
namespace {

constexpr std::chrono::seconds kLook{5};

// Readable once TERM or INT has come; the threads that are started later inherit the blocked
// signals.
class StopSignal {
 public:
  StopSignal() {
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGTERM);
    sigaddset(&signals_, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals_, &before_);
    fd_ = Descriptor(signalfd(-1, &signals_, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!fd_) throw mgr_err::Error("internal", "signalfd", std::strerror(errno));
  }
  ~StopSignal() {
    signalfd_siginfo taken;
    // Taken off, or it would end the process once the mask is back.
    while (read(fd_.get(), &taken, sizeof taken) > 0) {
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  StopSignal(const StopSignal&) = delete;
  StopSignal& operator=(const StopSignal&) = delete;

  int fd() const noexcept { return fd_.get(); }

 private:
  sigset_t signals_{};
  sigset_t before_{};
  Descriptor fd_;
};

void SayWhatRuns(Call& call) {
  for (const periodic::Entry& entry : periodic::Registered())
    call.output.Say(
        fmt::format("{} every {} min", entry.action, mgr_cf::GetParam(entry.period_param)));
  call.output.Say("serving; TERM or Ctrl-C ends it");
}

void Serve(Call& call) {
  const auto lock = reloader::Queue::OfProcess().TakeServeLock();
  if (!lock) throw mgr_err::Error("locked", "serve", "another server runs on this state");
  const RefreshAction refresh;
  const ExpiryAction expiry;
  ScheduleServeActions();
  const StopSignal stop;
  SayWhatRuns(call);
  const reloader::Worker worker;
  ConfigWatch config(call.config);
  periodic::Scheduler(
      stop.fd(),
      [&] {
        config.TakeUpChanges();
        brisq_panel::RecoverInTurn();
      },
      kLook)
      .Run();
  call.output.Say("ended");
}

}  // namespace

std::vector<Command> ServeCommands() {
  return {
      {.noun = "serve",
       .verb = "",
       .summary = "Run in the foreground: scheduled actions, delayed reloads, retries.",
       .run = Serve},
  };
}

}  // namespace brisq
