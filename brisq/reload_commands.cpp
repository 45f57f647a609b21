
#include "brisq/command_groups.h"
#include "brisq/output.h"
#include "brisq_api.h"
#include "framework/reload_queue.h"
#include "framework/utc.h"
#include "mgr_err.h"

namespace brisq {
namespace {

using reloader::GroupStatus;
using reloader::Milliseconds;
using reloader::ReloadRun;

std::string Time(Milliseconds at) {
  return at == 0 ? "" : UtcText(static_cast<std::time_t>(at / 1000));
}

std::string Word(GroupStatus::State state) {
  switch (state) {
    case GroupStatus::State::kIdle:
      return "idle";
    case GroupStatus::State::kWaiting:
      return "waiting";
    case GroupStatus::State::kRunning:
      return "running";
    case GroupStatus::State::kFailed:
      return "failed";
  }
  return "";
}

void Now(Call& call) {
  brisq_api::InternalCall("dovecot.reload", call.arguments.Has("--restart") ? "hard=on" : "");
  const std::vector<ReloadRun> runs = reloader::RunDue();
  for (const ReloadRun& run : runs)
    if (!run.error.empty()) throw mgr_err::Error("email", "reload", run.error);
  if (call.arguments.Has(kDryRun.name)) return;
  call.output.Say(runs.empty() ? "left to the running server" : "done");
}

void Status(Call& call) {
  for (const GroupStatus& status : reloader::Status()) {
    const ReloadRun last = status.last.value_or(ReloadRun());
    call.output.Row({{"group", status.group},
                     {"state", Word(status.state)},
                     {"requests", static_cast<long>(status.requests)},
                     {"last_run", Time(last.ended)},
                     {"kind", last.ended == 0 ? ""
                              : last.hard     ? "restart"
                                              : "reload"},
                     {"next_try", Time(status.next_try)},
                     {"error", last.error}});
  }
}

}  // namespace

std::vector<Command> ReloadCommands() {
  return {
      {.noun = "reload",
       .verb = "now",
       .summary = "Have Dovecot take up changes without waiting.",
       .options = {{"--restart", "", "restart instead of reload"}},
       .changes = true,
       .run = Now},
      {.noun = "reload",
       .verb = "status",
       .summary = "Show the requests that wait and how the last run ended.",
       .run = Status,
       .reads = true},
  };
}

}  // namespace brisq
