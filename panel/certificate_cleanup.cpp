#include "panel/certificate_cleanup.h"

#include "framework/modules.h"
#include "mgr_job.h"

namespace brisq_panel {

void PruneAfterCommit() {
  if (brisq_api::FindAction(kCheckAction) != nullptr) {
    new mgr_job::CallOnCommit(kCheckAction, "");
  }
  if (brisq_api::FindAction(kReloadAction) != nullptr) {
    new mgr_job::CallOnCommit(kReloadAction, "hard=on");
  }
}

}  // namespace brisq_panel
