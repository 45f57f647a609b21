#pragma once

#include <string>
#include <vector>

#include "brisq_export.h"

/// Where the mail back-end keeps what belongs to a domain's certificate, and whether it is as it
/// should be. Read only. Any thread.
namespace brisq_panel {

/// Places of one domain.
struct BRISQ_API TlsPlaces {
  std::string cert_link;
  std::string key_link;
  std::string snippet;
};

/// @throws mgr_err::Error "config" when the path key "dovecot-ssl-certs" or "dovecot-certconf" is
/// not set or is no absolute path
BRISQ_API TlsPlaces PlacesOf(const std::string& domain);

/// Folder of the snippets.
/// @throws mgr_err::Error "config" as above
BRISQ_API std::string SnippetFolder();

/// What is wrong with one of the places of a domain.
struct BRISQ_API PlaceFinding {
  enum class Kind { kWrongLink, kNoSnippet, kEditedSnippet };

  std::string path;
  Kind kind;
  std::string text;  ///< what is said of the path, without it
};

/// What is wrong with links and snippet of a domain that has this certificate and key; empty when
/// all is well.
/// @throws mgr_err::Error "config" as above
BRISQ_API std::vector<PlaceFinding> PlaceFindings(const std::string& domain,
                                                  const std::string& cert, const std::string& key);

/// Why a snippet is of no use: a file that it names is missing; empty when it names none that is.
BRISQ_API std::string MissingFileOf(const std::string& snippet);

}  // namespace brisq_panel
