#include "panel/run_request.h"

#include "framework/database.h"
#include "mgr_err.h"
#include "panel/held_signals.h"

namespace brisq_panel {

namespace {

mgr_err::Error WithNotes(const mgr_err::Error& error, const std::vector<std::string>& notes) {
  std::string value = error.value();
  for (const std::string& note : notes) {
    value += (value.empty() ? "" : "; ") + note;
  }
  mgr_err::Error full(error.type(), error.object(), value);
  if (error.report()) {
    full.set_report();
  }
  return full;
}

}  // namespace

std::vector<std::string> RunRequest(const std::string& name,
                                    const std::function<void(Request&)>& work) {
  const HeldSignals held;  // ends last: taking back must not be cut off either
  Request request(name);
  try {
    mgr_db::ThreadConnection()->LockForWriting();
    work(request);
    request.Commit();
  } catch (const mgr_err::Error& error) {
    request.Rollback();
    if (request.Notes().empty()) {
      throw;
    }
    throw WithNotes(error, request.Notes());
  }
  return request.Notes();
}

}  // namespace brisq_panel
