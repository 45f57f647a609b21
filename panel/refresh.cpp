#include "panel/refresh.h"

#include <optional>

#include "email.h"
#include "framework/conf_defer.h"
#include "framework/database.h"
#include "framework/save_watch.h"
#include "framework/utc.h"
#include "mgr_log.h"
#include "panel/archive.h"
#include "panel/email_module.h"
#include "panel/figures_guard.h"
#include "panel/file_stamps.h"
#include "panel/hash_guard.h"
#include "panel/lost_file.h"
#include "panel/panel_state.h"
#include "panel/records.h"
#include "panel/refresh_lock.h"
#include "panel/refresh_watch.h"
#include "panel/run_request.h"
#include "panel/stored_password.h"
#include "str.h"

namespace brisq_panel {

namespace {

mgr_log::Module g_log("refresh", "brisq");

int LastArchived() {
  return str::Int(mgr_db::ThreadConnection()
                      ->Query("SELECT MAX(id) FROM mailbox_archive", {}, 1)
                      .front()
                      .front());
}

std::vector<std::string> SweptSince(int archived) {
  std::vector<std::string> addresses;
  for (const auto& row :
       mgr_db::ThreadConnection()->Query("SELECT name || '@' || domain FROM mailbox_archive"
                                         " WHERE id > :v1 AND reason = :v2 ORDER BY id",
                                         {std::to_string(archived), kSwept}, 1)) {
    addresses.push_back(row.front());
  }
  return addresses;
}

// The back-end posts row by row and line by line.
void RunCache(email::Pop3Interface& backend) {
  mgr_db::GroupedChanges rows;
  DeferSaves lines;
  backend.Cache();
  lines.Save();
  rows.Commit();
}

email::Fail WrongAnswer(const std::string& problem) {
  return {"doveadm", problem + "; passwords stay as they were"};
}

void RunGuarded(email::Pop3Interface& backend) {
  const HashGuard hashes;
  try {
    RunCache(backend);
  } catch (const mgr_err::Error& error) {
    hashes.PutBack();
    if (const std::string unfit = UnfitAnswer(error); !unfit.empty()) {
      throw WrongAnswer(unfit);
    }
    throw;
  }
  const std::string problem = hashes.PutBack();
  if (!problem.empty()) {
    throw WrongAnswer(problem);
  }
}

// A file that somebody else has changed meanwhile is read again next time, and so is one whose
// passwords still are to be looked at.
void RecordStamps(const RefreshWatch& watch, const SaveWatch& saves) {
  if (watch.put_off()) {
    return;
  }
  for (const RefreshWatch::File& file : watch.files()) {
    const ConfStamp now = SettledStamp(file.path);
    if (saves.Explains(file.path, file.stamp, now)) {
      RecordStamp(file.path, StampText(now));
    }
  }
}

std::string KeepFigures(const MailboxSnapshot& before, MailboxSnapshot& after,
                        const RefreshWatch& watch) {
  std::string problem = QuotaProblem(before, after, watch);
  if (!problem.empty()) {
    RestoreFigures(before, after);
  }
  DoRequest("state of the figures", [&](Request&) {
    KeepValue(kQuotaProblem, problem);
    if (problem.empty()) {
      KeepValue(kFiguresAsOf, UtcNow());
    }
  });
  return problem;
}

void CountChanges(const MailboxSnapshot& before, const MailboxSnapshot& after,
                  RefreshReport& report) {
  for (const auto& [id, state] : after) {
    const auto old = before.find(id);
    if (old == before.end()) {
      continue;
    }
    report.homes_filled += !old->second.has_home && state.has_home ? 1u : 0u;
    report.figures_changed += old->second.used != state.used ? 1u : 0u;
  }
}

// Rows that were posted before a failure stay, but zeros in place of figures must not.
void KeepFiguresOfFailure(const MailboxSnapshot& before, const RefreshWatch& watch) noexcept {
  try {
    MailboxSnapshot after = TakeMailboxSnapshot();
    KeepFigures(before, after, watch);
  } catch (const std::exception& error) {
    if (g_log.Check(mgr_log::kError)) {
      g_log.Write(mgr_log::kError, "Figures after a failed refresh: %s", error.what());
    }
  }
}

}  // namespace

RefreshReport Refresh(bool sweep) {
  email::Pop3Interface& backend = MailBackend();
  const RefreshLock lock;
  RefuseMissingFile();
  std::optional<SweepPermit> permit;
  if (sweep) {
    permit.emplace();
  }
  const int archived = LastArchived();
  const MailboxSnapshot before = TakeMailboxSnapshot();
  const SaveWatch saves;
  const RefreshWatch watch(before.empty() ? 0 : before.rbegin()->first);
  try {
    RunGuarded(backend);
  } catch (...) {
    KeepFiguresOfFailure(before, watch);
    throw;
  }
  RefreshReport report;
  MailboxSnapshot after = TakeMailboxSnapshot();
  report.quota_problem = KeepFigures(before, after, watch);
  RecordStamps(watch, saves);
  CountChanges(before, after, report);
  report.walked = watch.walked();
  report.lines = watch.lines();
  report.unknown = watch.unknown();
  report.spared = watch.spared();
  report.swept = SweptSince(archived);
  return report;
}

}  // namespace brisq_panel
