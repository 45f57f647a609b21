#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "brisq_export.h"

/// Certificates of mail domains. Each function that changes something is one request of the calling
/// thread: when it throws, everything is as it was. Any thread.
namespace brisq_panel {

/// What is to be said about a domain's certificate; a time is in UTC, "2024-01-31T23:59:59Z".
struct BRISQ_API CertificateInfo {
  std::string domain;
  std::string cert;                ///< path
  std::string key;                 ///< path
  std::vector<std::string> names;  ///< that the certificate covers
  std::string expires;             ///< empty when the file can't be read
  long days_left = 0;              ///< whole days, negative when it has expired
  bool key_matches = false;
  /// What is wrong with the files, the links and the snippet; empty when all is well.
  std::vector<std::string> findings;
};

/// Has the mail server present a certificate for a domain. Both files are checked first: readable,
/// well-formed, belonging together, not expired and valid already, for this domain.
/// @param cert   absolute path of a PEM file: the certificate, then those that lead to its issuer
/// @param key    absolute path of a PEM file: the private key, without a passphrase
/// @param force  true: a certificate that does not cover the domain is only warned of
/// @return warnings, in plain words
/// @throws mgr_err::Error "missed" with object "domain"; "value" with object "certificate" or
/// "key"; "config" when a path key that is needed is not set; "plugin"; whatever the back-end
/// throws
BRISQ_API std::vector<std::string> SetCertificate(const std::string& domain,
                                                  const std::string& cert, const std::string& key,
                                                  bool force);

/// Has the mail server present its own certificate for a domain again.
/// @throws mgr_err::Error "missed" with object "domain", or "certificate" when it has none;
/// "plugin"; whatever the back-end throws
BRISQ_API void UnsetCertificate(const std::string& domain);

/// The domains that have a certificate, by name, each looked at closely.
/// @param now  time for which lifetimes are judged, in seconds since 1970
BRISQ_API std::vector<CertificateInfo> ListCertificates(std::time_t now = std::time(nullptr));

struct BRISQ_API PrunedSnippet {
  std::string file;
  std::string reason;
};

/// Runs the mail back-end's check action, and says which snippets it removed and why.
/// @throws mgr_err::Error "missed" when there is no such action, "config" when the snippets' path
/// key is not set; whatever the action throws
BRISQ_API std::vector<PrunedSnippet> PruneSnippets();

/// Texts about certificates that expire in 21, 7 or 1 days or have expired, each told once on its
/// day in a process: for the log of a server.
/// @param now  as for ListCertificates
BRISQ_API std::vector<std::string> ExpiryWarnings(std::time_t now = std::time(nullptr));

}  // namespace brisq_panel
