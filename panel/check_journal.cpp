#include "panel/check_journal.h"

#include "framework/journal.h"
#include "panel/shell_word.h"

namespace brisq_panel {

void CheckJournal(Drifts& drifts) {
  if (journal::Folder().empty()) {
    return;
  }
  for (const journal::OpenEntry& entry : journal::OpenEntries()) {
    if (entry.alive) {
      continue;
    }
    const std::string steps = entry.steps.empty() ? "" : "; its last step: " + entry.steps.back();
    drifts.Error("JOURNAL-OPEN", journal::Folder() + "/" + entry.id,
                 entry.request + " of " + entry.who + " at " + entry.started +
                     " was killed or could not end, and is neither finished nor taken back yet" +
                     steps,
                 "end what the log \"brisq\" names, then brisq check; or give it up: rm " +
                     ShellWord(journal::Folder() + "/" + entry.id) + ", then brisq check");
  }
}

}  // namespace brisq_panel
