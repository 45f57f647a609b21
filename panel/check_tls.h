#pragma once

#include "brisq_export.h"
#include "panel/drift.h"

namespace brisq_panel {

/// Links and snippets of certificates; certificates themselves are looked at by "tls check".
///
/// | code | severity | |
/// |---|---|---|
/// | TLS-LINK | error | a domain's link is missing, leads elsewhere or is none |
/// | TLS-SNIPPET | error | a domain's snippet is missing |
/// | TLS-EDITED | warning | a domain's snippet is not what was written |
/// | TLS-STRANGER | warning | a snippet or a link is of no domain that has a certificate |
/// | TLS-DANGLING | error | such a snippet names a file that is missing: Dovecot does not come up |
/// | TLS-ACCESS | error | others may change a snippet, or everybody a folder |
/// | TLS-FILE | error | a domain's certificate or key file is missing |
///
/// Nothing is found while no folder is set and no domain has a certificate.
BRISQ_API void CheckTls(Drifts& drifts);

}  // namespace brisq_panel
