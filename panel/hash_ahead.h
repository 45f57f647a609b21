#pragma once

#include <memory>
#include <string>

#include "brisq_export.h"
#include "framework/proc_ahead.h"
#include "panel/held_signals.h"

namespace brisq_panel {

enum class HashFor {
  kNewMailbox,     ///< AddMailbox
  kOtherPassword,  ///< SetPassword
};

/// A run of the tool that makes a hash, with the password in its memory. Signals wait while it
/// lives, so that it is not left behind when they end the program. For one thread.
struct BRISQ_API BegunHash {
  BegunHash(const std::string& command, mgr_proc::SecretBuffer& input) : run(command, input) {}

  HeldSignals held;
  mgr_proc::Ahead run;
};

/// Begins to make the hash for a request that is about to come, for Dovecot's back-end: the tool
/// takes longer than all else that a request does, and the database's write lock need not be held
/// meanwhile. Only a guess at what the back-end will run, which takes it over if it was right
/// (framework/proc_ahead.h) and else runs the tool itself.
///
/// Null when the request will hardly ask for a hash: another back-end, an address or password that
/// is refused, a mailbox that is there already or, for another password, is not. A run that has
/// been begun already is not begun again. Throws nothing: what is wrong is for the request to say.
///
/// @param address  as the user gave it
BRISQ_API std::unique_ptr<BegunHash> BeginHash(const std::string& address,
                                               const std::string& password, HashFor what);

}  // namespace brisq_panel
