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

// The line that says why: the last fatal one, else the first error, behind which a tool that breaks
// down tells where it did, else the last.
std::string Reason(const std::string& text) {
  std::list<std::string> lines;
  str::Split(text, "\n", lines);
  lines.remove("");
  const auto says = [](const char* word) {
    return [word](const std::string& line) { return line.find(word) != std::string::npos; };
  };
  const auto fatal = std::find_if(lines.rbegin(), lines.rend(), says("Fatal: "));
  if (fatal != lines.rend()) {
    return fatal->substr(0, kLongestReason);
  }
  const auto error = std::find_if(lines.begin(), lines.end(), says("Error: "));
  const std::string last = lines.empty() ? std::string() : lines.back();
  return (error == lines.end() ? last : *error).substr(0, kLongestReason);
}

// Of a server whose sockets nobody listens at.
std::string MayBeDown(const std::string& reason) {
  const bool connects = reason.find("connect(") != std::string::npos;
  return connects ? reason + "; is Dovecot running?" : reason;
}

std::string WithoutFigures(int result) {
  return "doveadm quota told no figures" +
         (result == 0 ? "" : ", and ended with exit status " + std::to_string(result));
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
  const std::string reason = Reason(answer);
  return reason.empty() ? WithoutFigures(query.Result()) : MayBeDown(reason);
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
