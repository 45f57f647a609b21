#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "brisq_export.h"

/// What certificate and key files hold, read by OpenSSL. Nothing of a key is in an error or stays
/// in memory. Any thread.
namespace brisq_panel {

/// The first certificate of a file.
struct BRISQ_API Certificate {
  std::vector<std::string> names;  ///< names and addresses that it covers, as they stand in it
  std::time_t valid_from = 0;
  std::time_t valid_until = 0;
  std::string der;  ///< the certificate itself

  /// True when it is for this name (wildcards included) or address.
  bool Covers(const std::string& domain) const;
};

/// @param path  PEM file
/// @throws mgr_err::Error "value" with object "certificate" when it is missing, can't be read, or
/// holds none
BRISQ_API Certificate ReadCertificate(const std::string& path);

/// True when the private key in a PEM file belongs to the certificate.
/// @throws mgr_err::Error "value" with object "key" when it is missing, can't be read, holds no
/// key, or one that is locked by a passphrase
BRISQ_API bool KeyBelongsTo(const std::string& path, const Certificate& certificate);

/// True when others than the file's owner may read or change it; false for a missing one.
BRISQ_API bool IsOpenToOthers(const std::string& path);

}  // namespace brisq_panel
