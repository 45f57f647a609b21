#pragma once

#include <string>

#include "tests/support/temp_dir.h"

namespace panel_test {

struct CertificateFiles {
  std::string cert;
  std::string key;
};

/// Makes NAME.crt and NAME.key (0600) in a directory, with the program openssl: a certificate
/// signed with its own key.
/// @param names  subjectAltName as openssl takes it, "DNS:example.org,IP:192.0.2.1"; empty for none
/// @param begin, end  seconds from now between which it is valid
CertificateFiles MakeCertificate(const support::TempDir& dir, const std::string& name,
                                 const std::string& names, long begin = -60, long end = 90 * 86400);

}  // namespace panel_test
