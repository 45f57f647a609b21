#include "brisq/command_groups.h"
#include "brisq/output.h"
#include "framework/number.h"
#include "mgr_err.h"
#include "panel/job_history.h"
#include "str.h"
#include "test.h"

namespace brisq {
namespace {

using brisq_panel::JobInfo;
using brisq_panel::ObjectChange;

int Number(std::string text, const std::string& what) {
  if (!test::Numeric(text) || text.size() > 9)
    throw mgr_err::Error("value", what, "must be a whole number");
  return str::Int(text);
}

// The first few: a sync may have changed thousands.
std::string Objects(const JobInfo& job) {
  constexpr std::size_t kMost = 4;
  const std::size_t all = job.changes.size();
  const std::size_t shown = all > kMost ? kMost - 1 : all;
  std::string objects;
  for (std::size_t i = 0; i < shown; ++i)
    objects += (objects.empty() ? "" : ", ") + job.changes[i].name;
  return shown == all ? objects : objects + " and " + std::to_string(all - shown) + " more";
}

Record Head(const JobInfo& job) {
  return {{"job", static_cast<long>(job.id)},
          {"started", job.started},
          {"who", job.who},
          {"command", job.name},
          {"state", job.state}};
}

void List(Call& call) {
  const int most =
      call.arguments.Has("--last") ? Number(call.arguments.Text("--last"), "--last") : 20;
  for (const JobInfo& job : brisq_panel::ListJobs(most)) {
    Record row = Head(job);
    row.emplace_back("objects", Objects(job));
    call.output.Row(std::move(row));
  }
}

std::string ValueIn(const brisq_panel::ObjectState& state, const std::string& name) {
  const auto found = state.find(name);
  return found == state.end() ? "" : found->second;
}

void ShowChange(Call& call, const ObjectChange& change) {
  const auto& named = change.Removed() ? change.before : change.after;
  for (const auto& [name, value] : named)
    call.output.Row({{"object", change.kind + " " + change.name},
                     {"value", name},
                     {"before", ValueIn(change.before, name)},
                     {"after", ValueIn(change.after, name)}});
}

void Show(Call& call) {
  const JobInfo job = brisq_panel::ShowJob(Number(call.arguments.Text("JOB"), "job"));
  call.output.Say(job.name + " by " + job.who + ", " + job.started + ": " + job.state);
  call.output.Beside("job", Head(job));
  for (const ObjectChange& change : job.changes) ShowChange(call, change);
}

void Undo(Call& call) {
  const int id = Number(call.arguments.Text("JOB"), "job");
  for (const std::string& note : brisq_panel::UndoJob(id)) {
    call.output.Say(note);
    call.output.Beside("notes", {{"text", note}});
  }
  call.output.Silent({{"job", static_cast<long>(id)}, {"state", std::string("undone")}});
  call.output.Say("job " + std::to_string(id) + " undone");
}

const Operand kJob = {"JOB", "number, as job list shows it"};

}  // namespace

std::vector<Command> JobCommands() {
  return {
      {.noun = "job",
       .verb = "list",
       .summary = "List who changed what and when, latest first.",
       .operands = {},
       .options = {{"--last", "N", "how many, else 20; 0 for all"}},
       .one_of = {},
       .run = List,
       .reads = true},
      {.noun = "job",
       .verb = "show",
       .summary = "Show what a job changed, before and after, without passwords and hashes.",
       .operands = {kJob},
       .options = {},
       .one_of = {},
       .run = Show,
       .reads = true},
      {.noun = "job",
       .verb = "undo",
       .summary = "Take a job back, unless something newer stands in the way.",
       .operands = {kJob},
       .options = {},
       .one_of = {},
       .changes = true,
       .run = Undo},
  };
}

}  // namespace brisq
