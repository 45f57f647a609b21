#include "brisq/dry_run.h"

#include "brisq/output.h"
#include "framework/rehearsal.h"

namespace brisq {

void RunDry(Call& call, const std::function<void()>& work) {
  call.output.BeginDryRun();
  const Rehearsal rehearsal;
  work();
  for (const std::string& effect : rehearsal.effects()) call.output.WouldHappen(effect);
  call.output.Say("nothing was changed");
}

}  // namespace brisq
