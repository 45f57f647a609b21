#include "panel/check_tls.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "brisq_api.h"
#include "email.h"
#include "framework/modules.h"
#include "mgr_cf.h"
#include "mgr_err.h"
#include "mgr_file.h"
#include "panel/certificate_cleanup.h"
#include "panel/domains.h"
#include "panel/email_module.h"
#include "panel/job_log.h"
#include "panel/mend_jobs.h"
#include "panel/path_key.h"
#include "panel/shell_word.h"
#include "panel/state_at.h"
#include "panel/tls_state.h"

namespace brisq_panel {

namespace {

bool IsThere(const std::string& path) { return StateAt(path, Links::kStay).has_value(); }

void DeclareLink(const std::string& path, const std::string& target) {
  std::error_code none;
  const std::string now = std::filesystem::read_symlink(path, none);
  if (now != target) {
    JobLog::Declare({kLink,
                     path,
                     IsThere(path) ? ObjectState{{"target", now}} : ObjectState{},
                     {{"target", target}}});
  }
}

bool IsEdited(const std::vector<PlaceFinding>& findings) {
  return std::any_of(findings.begin(), findings.end(), [](const PlaceFinding& finding) {
    return finding.kind == PlaceFinding::Kind::kEditedSnippet;
  });
}

// Links and snippet anew, as setting the certificate makes them; of the domain as it is by then.
std::function<void()> SetAnew(const std::string& name) {
  return [=] {
    const DomainInfo domain = ShowDomain(name);
    const TlsPlaces places = PlacesOf(name);
    if (domain.cert.empty()) {
      return;
    }
    if (IsEdited(PlaceFindings(name, domain.cert, domain.key))) {
      throw mgr_err::Error("limit", places.snippet, "was changed by hand meanwhile");
    }
    DeclareLink(places.cert_link, domain.cert);
    DeclareLink(places.key_link, domain.key);
    if (!IsThere(places.snippet)) {
      JobLog::Declare({kFile, places.snippet, {}, {{"state", "set anew"}}});
    }
    MailBackend().SetSSLCertForDomain(domain.name, domain.cert, domain.key);
  };
}

std::string Command(const DomainInfo& domain) {
  return "brisq tls set " + domain.name + " --cert " + ShellWord(domain.cert) + " --key " +
         ShellWord(domain.key);
}

// False when setting the certificate anew would make Dovecot fail.
bool CheckFiles(const DomainInfo& domain, Drifts& drifts) {
  bool all = true;
  for (const std::string& file : {domain.cert, domain.key}) {
    if (mgr_file::Info(file, 2).IsMissed()) {
      drifts.Error("TLS-FILE", domain.name, file + " is missing",
                   "put it back, or brisq tls unset " + domain.name);
      all = false;
    }
  }
  return all;
}

void CheckDomain(const DomainInfo& domain, Drifts& drifts) {
  bool mendable = CheckFiles(domain, drifts);
  const auto findings = PlaceFindings(domain.name, domain.cert, domain.key);
  // Nothing may be written over what was edited by hand.
  mendable = mendable && !IsEdited(findings);
  for (const PlaceFinding& finding : findings) {
    if (finding.kind == PlaceFinding::Kind::kEditedSnippet) {
      drifts.Warning("TLS-EDITED", finding.path, finding.text,
                     Command(domain) + ", to have it written anew");
    } else {
      drifts.Error(finding.kind == PlaceFinding::Kind::kWrongLink ? "TLS-LINK" : "TLS-SNIPPET",
                   finding.path, finding.text, Command(domain),
                   mendable ? SetAnew(domain.name) : nullptr);
    }
  }
}

void CheckAccess(const std::string& snippet, Drifts& drifts) {
  const auto state = StateAt(snippet, Links::kStay);
  if (!state || !S_ISREG(state->st_mode)) {
    return;
  }
  const bool foreign = state->st_uid != 0 && state->st_uid != ::geteuid();
  if (!foreign && (state->st_mode & (S_IWGRP | S_IWOTH)) == 0) {
    return;
  }
  drifts.Error("TLS-ACCESS", snippet, "others than root may change it",
               "chown root " + ShellWord(snippet) + " && chmod 0600 " + ShellWord(snippet),
               [=] { new SetAccess(snippet, 0600, ::geteuid()); });
}

std::function<void()> Prune(const std::string& snippet) {
  if (brisq_api::FindAction(kCheckAction) == nullptr) {
    return {};
  }
  return [=] {
    if (IsThere(snippet)) {
      JobLog::Declare({kFile, snippet, {{"state", "names a missing file"}}, {}});
    }
    brisq_api::InternalCall(kCheckAction, "");
    if (brisq_api::FindAction(kReloadAction) != nullptr) {
      new mgr_job::CallOnCommit(kReloadAction, "hard=on");
    }
  };
}

void CheckSnippets(const std::set<std::string>& known, Drifts& drifts) {
  for (mgr_file::Dir folder(SnippetFolder()); folder.Read();) {
    if (!folder.HasExt(".conf")) {
      continue;
    }
    const std::string snippet = folder.FullName();
    CheckAccess(snippet, drifts);
    if (known.count(snippet) != 0) {
      continue;  // what is wrong with it was found with its domain
    }
    const std::string missing = MissingFileOf(snippet);
    if (!missing.empty()) {
      drifts.Error("TLS-DANGLING", snippet,
                   "names " + missing + ", which is missing: Dovecot would not come up",
                   "brisq tls prune", Prune(snippet));
    } else {
      drifts.Warning("TLS-STRANGER", snippet, "belongs to no domain that has a certificate",
                     "rm " + ShellWord(snippet) + ", or leave it when it is meant");
    }
  }
}

// Files that somebody keeps there himself are his.
void CheckLinks(const std::set<std::string>& known, Drifts& drifts) {
  for (mgr_file::Dir folder(AbsolutePath("dovecot-ssl-certs")); folder.Read();) {
    const std::string link = folder.FullName();
    std::error_code none;
    if ((folder.HasExt(".crt") || folder.HasExt(".key")) && known.count(link) == 0 &&
        std::filesystem::is_symlink(link, none)) {
      drifts.Warning("TLS-STRANGER", link, "belongs to no domain that has a certificate",
                     "rm " + ShellWord(link) + ", or leave it when it is meant");
    }
  }
}

// It is not narrowed: others may need it as it is.
void CheckFolder(const std::string& folder, Drifts& drifts) {
  const auto state = StateAt(folder, Links::kFollow);
  if (state && (state->st_mode & S_IWOTH) != 0) {
    drifts.Error("TLS-ACCESS", folder, "everybody may replace what lies in it",
                 "chmod o-w " + ShellWord(folder));
  }
}

}  // namespace

void CheckTls(Drifts& drifts) {
  std::set<std::string> known;
  for (const DomainInfo& domain : ListDomains()) {
    if (!domain.cert.empty()) {
      const TlsPlaces places = PlacesOf(domain.name);
      known.insert({places.snippet, places.cert_link, places.key_link});
      CheckDomain(domain, drifts);
    }
  }
  if (!mgr_cf::GetPath("dovecot-certconf").empty()) {
    CheckFolder(SnippetFolder(), drifts);
    CheckSnippets(known, drifts);
  }
  if (!mgr_cf::GetPath("dovecot-ssl-certs").empty()) {
    CheckFolder(AbsolutePath("dovecot-ssl-certs"), drifts);
    CheckLinks(known, drifts);
  }
}

}  // namespace brisq_panel
