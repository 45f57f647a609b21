#include "panel/certificate_cleanup.h"

#include <utility>

#include "framework/modules.h"
#include "framework/request.h"
#include "mgr_err.h"
#include "mgr_file.h"
#include "mgr_job.h"
#include "panel/tls_state.h"

namespace brisq_panel {

namespace {

// The back-end tells its log alone that it could not remove a snippet.
class LookAfterPruning : public mgr_job::Job {
 public:
  explicit LookAfterPruning(std::string snippet) : snippet_(std::move(snippet)) {}
  void Do() override {
    const auto look = [snippet = snippet_] {
      if (mgr_file::Exists(snippet)) {
        throw mgr_err::Error("file", snippet, "is still there; brisq tls prune tries again");
      }
    };
    // The journal holds the call that was to remove it.
    Request::Current()->AfterCommit("removal of " + snippet_, look, Request::Failing::kStaysOwed);
  }
  void Undo() override {}

 private:
  const std::string snippet_;
};

}  // namespace

void PruneAfterCommit(const std::string& domain) {
  if (brisq_api::FindAction(kCheckAction) != nullptr) {
    new mgr_job::CallOnCommit(kCheckAction, "");
    new LookAfterPruning(PlacesOf(domain).snippet);
  }
  if (brisq_api::FindAction(kReloadAction) != nullptr) {
    new mgr_job::CallOnCommit(kReloadAction, "hard=on");
  }
}

}  // namespace brisq_panel
