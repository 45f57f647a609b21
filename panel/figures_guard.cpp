#include "panel/figures_guard.h"

#include <algorithm>
#include <list>

#include "framework/database.h"
#include "mgr_cf.h"
#include "mgr_proc.h"
#include "panel/run_request.h"
#include "str.h"

namespace brisq_panel {

namespace {

// Longest text of an error that is kept and shown.
constexpr std::size_t kLongestReason = 300;

// True when no mailbox that the refresh saw has a figure other than zero.
bool MayLackFigures(const MailboxSnapshot& before, const MailboxSnapshot& after,
                    const RefreshWatch& watch) {
  if (!watch.walked()) {
    return watch.figures() == 0 && std::any_of(after.begin(), after.end(), [](const auto& entry) {
             return entry.second.active;
           });
  }
  bool seen = false;
  for (const auto& [id, state] : after) {
    const auto old = before.find(id);
    if (old == before.end() || old->second.tag == state.tag) {
      continue;
    }
    if (state.used != 0) {
      return false;
    }
    seen = true;
  }
  return seen;
}

// The last line that says something.
std::string LastLine(const std::string& text) {
  std::list<std::string> lines;
  str::Split(text, "\n", lines);
  lines.remove("");
  return lines.empty() ? std::string() : lines.back().substr(0, kLongestReason);
}

// Empty when the mail server tells figures, if only zeros.
std::string AskMailServer() {
  const std::string doveadm = mgr_cf::GetPath("dovecot-doveadm");
  if (doveadm.empty()) {
    return "the path dovecot-doveadm is not set";
  }
  mgr_proc::Execute query(doveadm + " quota get -A 2>&1", 2);
  const std::string answer = query.Str();
  if (answer.find("STORAGE") != std::string::npos) {
    return {};
  }
  const std::string reason = LastLine(answer);
  return reason.empty() ? "doveadm quota told no figures" : reason;
}

}  // namespace

MailboxSnapshot TakeMailboxSnapshot() {
  MailboxSnapshot snapshot;
  for (const auto& row : mgr_db::ThreadConnection()->Query(
           "SELECT id, CASE WHEN home = '' THEN 'no' ELSE 'yes' END, used, tag, active"
           " FROM mailboxes ORDER BY id",
           {}, 5)) {
    snapshot.emplace_hint(
        snapshot.end(), str::Int(row[0]),
        MailboxState{row[1] == "yes", str::Int(row[2]), str::Int(row[3]), row[4] == "on"});
  }
  return snapshot;
}

std::string QuotaProblem(const MailboxSnapshot& before, const MailboxSnapshot& after,
                         const RefreshWatch& watch) {
  return MayLackFigures(before, after, watch) ? AskMailServer() : std::string();
}

void RestoreFigures(const MailboxSnapshot& before, MailboxSnapshot& after) {
  DoRequest("figures of used space", [&](Request&) {
    for (auto& [id, state] : after) {
      const auto old = before.find(id);
      if (old != before.end() && old->second.used != state.used) {
        mgr_db::ThreadConnection()->Change("UPDATE mailboxes SET used = :v1 WHERE id = :v2",
                                           {std::to_string(old->second.used), std::to_string(id)});
        state.used = old->second.used;
      }
    }
  });
}

}  // namespace brisq_panel
