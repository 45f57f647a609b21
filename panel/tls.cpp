#include "panel/tls.h"

#include <ctime>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>

#include "brisq_api.h"
#include "email.h"
#include "framework/modules.h"
#include "framework/rehearsal.h"
#include "framework/utc.h"
#include "mgr_file.h"
#include "mgr_job.h"
#include "panel/certificate_cleanup.h"
#include "panel/certificates.h"
#include "panel/email_module.h"
#include "panel/job_log.h"
#include "panel/names.h"
#include "panel/records.h"
#include "panel/run_request.h"
#include "panel/text_rules.h"
#include "panel/tls_state.h"

namespace brisq_panel {

namespace {

namespace fs = std::filesystem;

constexpr long kDay = 24 * 60 * 60;
// Days before the end at which a server warns; 0 stands for the end itself.
constexpr long kWarningDays[] = {0, 1, 7, 21};

void CheckPath(const std::string& object, const std::string& path) {
  RefuseEmpty(object, path);
  RefuseControl(object, path);
  if (path.front() != '/') {
    throw Refused(object, "must be an absolute path");
  }
}

// A file that is reached through the place of the domain's own link would vanish behind that link.
void RefuseOwnPlace(const std::string& object, const std::string& path, const TlsPlaces& places) {
  constexpr int kMostLinks = 40;  // as the system does
  std::error_code none;
  fs::path at = path;
  for (int links = 0; links < kMostLinks; ++links) {
    at = fs::weakly_canonical(at.parent_path(), none) / at.filename();
    for (const fs::path place : {places.cert_link, places.key_link}) {
      if (at == fs::weakly_canonical(place.parent_path(), none) / place.filename()) {
        throw Refused(object, "leads to " + at.string() +
                                  ", where the link to it belongs: keep the file somewhere else");
      }
    }
    const fs::path target = fs::read_symlink(at, none);
    if (none || target.empty()) {
      return;
    }
    at = at.parent_path() / target;
  }
}

// Whole days, rounded down: -1 as soon as the end is over.
long DaysUntil(std::time_t end, std::time_t now) {
  const long seconds = static_cast<long>(end - now);
  return seconds >= 0 ? seconds / kDay : -1 - (-seconds - 1) / kDay;
}

void RequireValid(const Certificate& certificate) {
  const std::time_t now = std::time(nullptr);
  if (certificate.valid_until < now) {
    throw Refused("certificate", "has expired on " + UtcText(certificate.valid_until));
  }
  if (certificate.valid_from > now) {
    throw Refused("certificate", "is valid from " + UtcText(certificate.valid_from) + " only");
  }
}

std::string NotCovered(const std::string& domain) { return "does not cover " + domain; }

// Refuses files that would do harm and returns what is only doubtful.
std::vector<std::string> CheckFiles(const std::string& domain, const std::string& cert,
                                    const std::string& key, bool force) {
  const Certificate certificate = ReadCertificate(cert);
  if (!KeyBelongsTo(key, certificate)) {
    throw Refused("key", "does not belong to the certificate");
  }
  RequireValid(certificate);
  std::vector<std::string> warnings;
  if (!certificate.Covers(domain)) {
    if (!force) {
      throw Refused("certificate", NotCovered(domain) + "; --force sets it all the same");
    }
    warnings.push_back("the certificate " + NotCovered(domain));
  }
  if (IsOpenToOthers(key)) {
    warnings.push_back("the key file " + key + " is open to other users: set its mode to 0600");
  }
  return warnings;
}

void LookAtFiles(CertificateInfo& info, std::time_t now) {
  const Certificate certificate = ReadCertificate(info.cert);
  info.names = certificate.names;
  info.expires = UtcText(certificate.valid_until);
  info.days_left = DaysUntil(certificate.valid_until, now);
  if (info.days_left < 0) {
    info.findings.push_back("has expired");
  }
  if (!certificate.Covers(info.domain)) {
    info.findings.push_back(NotCovered(info.domain));
  }
  info.key_matches = KeyBelongsTo(info.key, certificate);
  if (!info.key_matches) {
    info.findings.push_back("the key does not belong to the certificate");
  }
  if (IsOpenToOthers(info.key)) {
    info.findings.push_back("the key file is open to other users");
  }
}

// Does one look; one that can't be done is a finding.
void Look(CertificateInfo& info, const std::function<void()>& look) {
  try {
    look();
  } catch (const mgr_err::Error& error) {
    info.findings.push_back(error.object() + ": " + error.value());
  }
}

CertificateInfo LookAt(const brisq_db::EmailDomainTable& domain, std::time_t now) {
  CertificateInfo info;
  info.domain = domain.name;
  info.cert = domain.cert;
  info.key = domain.key;
  Look(info, [&] { LookAtFiles(info, now); });
  Look(info, [&] {
    for (const PlaceFinding& finding : PlaceFindings(info.domain, info.cert, info.key)) {
      info.findings.push_back(finding.path + " " + finding.text);
    }
  });
  return info;
}

// Snippets and what is wrong with each.
std::map<std::string, std::string> Snippets(const std::string& folder) {
  std::map<std::string, std::string> snippets;
  const Rehearsal* const rehearsal = Rehearsal::Current();
  for (mgr_file::Dir directory(folder); directory.Read();) {
    const bool removed = rehearsal != nullptr && rehearsal->HasRemoved(directory.FullName());
    if (directory.HasExt(".conf") && !removed) {
      snippets[directory.FullName()] = MissingFileOf(directory.FullName());
    }
  }
  return snippets;
}

// The stage that a certificate has reached: the last of kWarningDays that was passed; -1 for none.
long StageOf(const CertificateInfo& info) {
  for (const long days : kWarningDays) {
    if (info.days_left < days) {
      return days;
    }
  }
  return -1;
}

// True for the first time in this process that this certificate is known to be at this stage.
bool IsNews(const CertificateInfo& info, long stage) {
  static std::mutex mutex;
  static std::map<std::string, std::pair<std::string, long>> told;
  const std::lock_guard lock(mutex);
  const std::pair now(info.expires, stage);
  const bool news = told[info.domain] != now;
  told[info.domain] = now;
  return news;
}

}  // namespace

std::vector<std::string> SetCertificate(const std::string& text, const std::string& cert,
                                        const std::string& key, bool force) {
  const std::string name = CheckDomain(text);
  CheckPath("certificate", cert);
  CheckPath("key", key);
  email::Pop3Interface& backend = MailBackend();
  const TlsPlaces places = PlacesOf(name);
  FindDomain(name);
  RefuseOwnPlace("certificate", cert, places);
  RefuseOwnPlace("key", key, places);
  std::vector<std::string> warnings = CheckFiles(name, cert, key, force);
  DoRequest("tls set", [&](Request&) {
    JobLog::Watch(kDomain, name);
    const auto domain = FindDomain(name);
    domain->cert = cert;
    domain->key = key;
    domain->Post();
    backend.SetSSLCertForDomain(name, cert, key);
  });
  return warnings;
}

void UnsetCertificate(const std::string& text) {
  const std::string name = CheckDomain(text);
  email::Pop3Interface& backend = MailBackend();
  DoRequest("tls unset", [&](Request&) {
    JobLog::Watch(kDomain, name);
    auto domain = FindDomain(name);
    if (std::string(domain->cert).empty()) {
      throw mgr_err::Error("missed", "certificate", name);
    }
    domain->cert = "";
    domain->key = "";
    domain->Post();
    backend.OnUpdateDomain(domain);
    PruneAfterCommit(name);
  });
}

std::vector<CertificateInfo> ListCertificates(std::time_t now) {
  std::vector<CertificateInfo> certificates;
  const auto domain = Table<brisq_db::EmailDomainTable>();
  for (domain->DbSelect({}, "name"); !domain->Eof(); domain->Next()) {
    if (!std::string(domain->cert).empty()) {
      certificates.push_back(LookAt(*domain, now));
    }
  }
  return certificates;
}

std::vector<PrunedSnippet> PruneSnippets() {
  const std::string folder = SnippetFolder();
  const auto before = Snippets(folder);
  brisq_api::InternalCall(kCheckAction, "");
  const auto after = Snippets(folder);
  std::vector<PrunedSnippet> pruned;
  for (const auto& [file, missing] : before) {
    if (after.find(file) == after.end()) {
      pruned.push_back({file, missing.empty() ? "removed meanwhile" : missing + " is missing"});
    }
  }
  return pruned;
}

std::vector<std::string> ExpiryWarnings(std::time_t now) {
  std::vector<std::string> warnings;
  for (const CertificateInfo& info : ListCertificates(now)) {
    const long stage = info.expires.empty() ? -1 : StageOf(info);
    if (!IsNews(info, stage) || stage < 0) {
      continue;
    }
    warnings.push_back("The certificate of " + info.domain +
                       (stage == 0 ? " has expired on " : " expires on ") + info.expires);
  }
  return warnings;
}

}  // namespace brisq_panel
