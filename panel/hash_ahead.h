#pragma once

#include <memory>
#include <string>

#include "brisq_export.h"
#include "framework/proc_ahead.h"

namespace brisq_panel {

enum class HashFor {
  kNewMailbox,     ///< AddMailbox
  kOtherPassword,  ///< SetPassword
};

/// Begins to make the hash for a request that is about to come, for Dovecot's back-end: the tool
/// takes longer than all else that a request does, and the database's write lock need not be held
/// meanwhile. Only a guess at what the back-end will run, which takes it over if it was right
/// (framework/proc_ahead.h) and else runs the tool itself.
///
/// Null when the request will hardly ask for a hash: another back-end, an address or password that
/// is refused, a mailbox that is there already or, for another password, is not; also when it has
/// been begun already. Throws nothing: what is wrong is for the request to say. Any thread.
///
/// @param address  as the user gave it
BRISQ_API std::unique_ptr<mgr_proc::Ahead> BeginHash(const std::string& address,
                                                     const std::string& password, HashFor what);

}  // namespace brisq_panel
