#pragma once

#include <string>

#include "brisq_api.h"
#include "brisq_export.h"

/// Reloads and restarts of a server, merged and repeated until they succeed.
namespace reloader {

/// The action that asks for a reload or a restart.
///
/// Each call is a request: with an empty parameter string for a reload, with "hard=on" for a
/// restart. Requests that come within the delay are merged into one run, in which a restart wins;
/// every request is followed by a run that began after it. At most one run goes on and one waits. A
/// run that fails is logged, kept in the history and tried again with growing pauses.
class BRISQ_API Reloader : public brisq_api::Action {
 public:
  /// @param group        under which the requests are merged and their history is listed
  /// @param action       name of the action
  /// @param delay_param  parameter that holds the delay in seconds; 2 when it is unset or no number
  /// @param reload       shell command line of a reload
  /// @param restart      shell command line of a restart
  Reloader(const std::string& group, const std::string& action, const std::string& delay_param,
           const std::string& reload, const std::string& restart);
  ~Reloader() override;

  /// Notes the request and returns; the run comes later, on another thread or at the end of the
  /// process's work.
  void Execute(brisq_api::Session& session) const override;

 private:
  std::string group_;
  std::string delay_param_;
  std::string reload_;
  std::string restart_;
};

}  // namespace reloader
