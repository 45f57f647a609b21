#pragma once

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "brisq_export.h"
#include "framework/request.h"
#include "panel/object_state.h"

/// Keeping what a request has changed, with before and after, in the table of jobs.
namespace brisq_panel {

/// What a request has changed of one object.
struct BRISQ_API ObjectChange {
  std::string kind;
  std::string name;
  ObjectState before;  ///< empty for an object that was made
  ObjectState after;   ///< empty for one that was removed; else the same names as in `before`

  bool Made() const { return before.empty(); }
  bool Removed() const { return after.empty(); }
};

/// The objects that the request of this thread may change. One per request, made by RunRequest.
class BRISQ_API JobLog {
 public:
  JobLog();
  ~JobLog();
  JobLog(const JobLog&) = delete;
  JobLog& operator=(const JobLog&) = delete;

  /// Notes an object as it is before it is changed; only its first state in a request counts. Does
  /// nothing without a log on this thread.
  /// @throws as StateOf
  static void Watch(const std::string& kind, const std::string& name);
  /// Notes a change whose outcome is known beforehand, or that no state tells: of one object there
  /// is one, the first. Does nothing without a log on this thread.
  /// @param change  of an object that is there before and after, all values
  static void Declare(ObjectChange change);
  /// Notes that the request takes back this job.
  static void Undoes(int job);

  /// Adds the job's row to the request's transaction, if something was changed, and forgets jobs
  /// that are older than "JobHistoryDays".
  /// @throws as StateOf; what sealing throws
  void Write(const Request& request);

 private:
  std::vector<ObjectChange> Changes() const;

  bool IsNew(const std::string& kind, const std::string& name);

  std::set<std::pair<std::string, std::string>> known_;  // kinds and names
  std::vector<ObjectChange> watched_;                    // `after` is not known yet
  std::vector<ObjectChange> declared_;
  int undoes_ = 0;
};

/// Changes as lines of text, and back. With `secrets` hidden a value that may not be shown is
/// "(hidden)".
enum class Secrets { kHidden, kKept };
BRISQ_API std::string ToText(const std::vector<ObjectChange>& changes, Secrets secrets);
BRISQ_API std::vector<ObjectChange> FromText(const std::string& text);

}  // namespace brisq_panel
