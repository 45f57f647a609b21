#include "panel/check.h"

#include <functional>

#include "framework/rehearsal.h"
#include "mgr_err.h"
#include "panel/check_homes.h"
#include "panel/check_journal.h"
#include "panel/check_leftovers.h"
#include "panel/check_lines.h"
#include "panel/check_state.h"
#include "panel/check_tls.h"
#include "panel/run_request.h"
#include "panel/text_rules.h"

namespace brisq_panel {

namespace {

void Attempt(const CheckArea& area, Drifts& drifts, const std::function<void()>& look) {
  try {
    look();
  } catch (const mgr_err::Error& error) {
    drifts.Error("CHECK-FAILED", area.name, error.object() + ": " + error.value(),
                 "end what is named there, then brisq check");
  }
}

// What a request is at shows as drift while it goes on: what is found counts if it is still so with
// the write lock held. Where all is well nobody is held up.
void Look(const CheckArea& area, Drifts& drifts) {
  Drifts first;
  Attempt(area, first, [&] { area.look(first); });
  if (first.all().empty()) {
    return;
  }
  const Rehearsal rehearsal;
  Attempt(area, drifts, [&] {
    RunRequest("check", [&](Request&) { Attempt(area, drifts, [&] { area.look(drifts); }); });
  });
}

// Says of each that can be mended that it can.
void OfferMends(std::vector<Drift>& drifts) {
  constexpr const char* kCommand = "brisq check --fix";
  for (Drift& drift : drifts) {
    std::string& fix = drift.finding.fix;
    if (drift.mend && fix != kCommand) {
      fix = std::string(kCommand) + ", or " + fix;
    }
  }
}

}  // namespace

const std::vector<CheckArea>& CheckAreas() {
  static const std::vector<CheckArea> areas = {
      {"state", "the state folder, the database, the key of kept passwords, the log", CheckState},
      {"passwd", "the passwd-file, its lines, and the panel's mailboxes", CheckLines},
      {"homes", "homes of owners and mailboxes, Maildirs", CheckHomes},
      {"tls", "links and snippets of certificates", CheckTls},
      {"journal", "requests that were killed and not recovered", CheckJournal},
      {"leftovers", "what killed processes have left", CheckLeftovers},
  };
  return areas;
}

std::vector<Drift> CheckInstance(const std::string& only) {
  Drifts drifts;
  bool looked = false;
  std::string names;
  for (const CheckArea& area : CheckAreas()) {
    names += (names.empty() ? "" : ", ") + area.name;
    if (only.empty() || only == area.name) {
      Look(area, drifts);
      looked = true;
    }
  }
  if (!looked) {
    throw Refused("area", "must be one of " + names);
  }
  OfferMends(drifts.all());
  return std::move(drifts.all());
}

void MendDrift(const Drift& drift) {
  DoRequest("check --fix", [&](Request&) { drift.mend(); });
}

}  // namespace brisq_panel
