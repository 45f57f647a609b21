#pragma once

#include <string>
#include <vector>

#include "brisq_export.h"

/// Mail domains. Names are taken in any form that names.h admits and given in their stored form.
/// Each function that changes something is one request of the calling thread: when it throws,
/// everything is as it was. Any thread.
namespace brisq_panel {

struct BRISQ_API DomainInfo {
  std::string name;
  std::string owner;
  bool active = false;
  int mailboxes = 0;
  std::string cert;  ///< path; empty without a certificate
  std::string key;   ///< path; empty without a certificate
};

/// Adds an active domain.
/// @param owner  name of its owner
/// @throws mgr_err::Error "value", "missed" with object "owner", "exists" with object "domain"
BRISQ_API DomainInfo AddDomain(const std::string& name, const std::string& owner);

/// All domains, by name.
BRISQ_API std::vector<DomainInfo> ListDomains();

/// @throws mgr_err::Error "value", "missed" with object "domain"
BRISQ_API DomainInfo ShowDomain(const std::string& name);

}  // namespace brisq_panel
