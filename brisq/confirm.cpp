#include "brisq/confirm.h"

#include <iostream>

#include "brisq/exit_codes.h"
#include "mgr_err.h"

namespace brisq {

void Confirm(const Call& call, const std::string& question) {
  if (call.arguments.Has(kYes.name) || call.arguments.Has(kDryRun.name)) return;
  if (!call.console.interactive)
    throw mgr_err::Error("usage", "", "without a terminal this needs " + kYes.name);
  call.console.err << Printable(question) << " [y/N] " << std::flush;
  std::string answer;
  std::getline(call.console.in, answer);
  if (answer != "y" && answer != "Y" && answer != "yes")
    throw mgr_err::Error("limit", "", "not confirmed, nothing was done");
}

}  // namespace brisq
