#include "panel/certificate_cleanup.h"

#include "brisq_api.h"
#include "framework/modules.h"
#include "mgr_err.h"
#include "mgr_file.h"
#include "mgr_job.h"
#include "panel/names.h"
#include "panel/tls_state.h"

namespace brisq_panel {

namespace {

// The back-end tells its log alone that it could not remove a snippet.
class SnippetRemoval : public brisq_api::Action {
 public:
  SnippetRemoval() : Action(kPruneAction, kAdministratorOnly, nullptr) {}
  void Execute(brisq_api::Session& session) const override {
    const std::string snippet = PlacesOf(CheckDomain(session.Param("domain"))).snippet;
    brisq_api::InternalCall(kCheckAction, "");
    if (!mgr_file::Exists(snippet)) {
      return;
    }
    if (MissingFileOf(snippet).empty()) {
      throw mgr_err::Error("exists", snippet,
                           "names files that are there: remove it if nobody needs it");
    }
    throw mgr_err::Error("file", snippet, "is still there; brisq tls prune tries again");
  }
};

// There before a recovery looks for it.
const SnippetRemoval snippet_removal;

}  // namespace

void PruneAfterCommit(const std::string& domain) {
  if (brisq_api::FindAction(kCheckAction) != nullptr) {
    new mgr_job::CallOnCommit(kPruneAction, "domain=" + domain);
  }
  if (brisq_api::FindAction(kReloadAction) != nullptr) {
    new mgr_job::CallOnCommit(kReloadAction, "hard=on");
  }
}

}  // namespace brisq_panel
