#include "email.h"
#include "mgr_cf.h"
#include "mgr_file.h"
#include "panel/link_jobs.h"
#include "panel/text_rules.h"

namespace email::domain {

namespace {

void CheckLinkName(const std::string& domain) {
  brisq_panel::RefuseEmpty("domain", domain);
  brisq_panel::RefuseControl("domain", domain);
  brisq_panel::RefuseAnyOf("domain", domain, "/");
  if (domain.front() == '.') {
    throw brisq_panel::Refused("domain", "must not start with '.'");
  }
}

}  // namespace

std::string CreateSymbLink(const std::string& domain, const std::string& directory,
                           const std::string& file, const std::string& suffix) {
  CheckLinkName(domain);
  if (directory.empty() || directory.front() != '/') {
    throw brisq_panel::Refused("certificate link directory", "must be an absolute path");
  }
  std::string path = mgr_file::ConcatPath(directory, domain + suffix);
  new brisq_panel::PlaceLink(file, path);  // the request's from now on
  return path;
}

void CleenUpCerts(const std::shared_ptr<brisq_db::EmailDomainTable>& domain,
                  const std::string& event, const std::string& backend) {
  const bool without = std::string(domain->cert).empty();
  if (event != "delete" && !(event == "update" && without)) {
    return;
  }
  const std::string directory = mgr_cf::GetPath(backend + "-ssl-certs");
  if (directory.empty()) {
    return;  // no link was ever made
  }
  const std::string name = domain->name;
  for (const char* suffix : {".crt", ".key"}) {
    new brisq_panel::RemoveLink(mgr_file::ConcatPath(directory, name + suffix));
  }
}

}  // namespace email::domain
