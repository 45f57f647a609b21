#pragma once

#include <string>

namespace bench {

/// Looks through a folder of certificate snippets: opendir, and for each ".conf" open, read, and
/// stat of the two paths that it names. Returns how many of those are missing.
long CheckCertificatesBare(const std::string& folder);

}  // namespace bench
