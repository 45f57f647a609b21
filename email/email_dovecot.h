#pragma once

#include <string>

#include "mgr_log.h"

namespace brisqpriv_email_dovecot {

/// The plug-in's only log channel: module "email", log "dormel", alive from the library's load to
/// its unload. Every Write is guarded by Check of the same level. Any thread.
extern mgr_log::Module email_log;

/// First argument of every debug message, which begins "%s:%d "; the second is the line of the
/// logging statement. The same name whichever file logs. Any thread.
std::string DebugSource();

}  // namespace brisqpriv_email_dovecot
