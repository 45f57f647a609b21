#include "panel/tls_state.h"

#include <unistd.h>

#include <cerrno>
#include <climits>

#include "framework/file_error.h"
#include "mgr_file.h"
#include "panel/path_key.h"
#include "str.h"
#include "test.h"

namespace brisq_panel {

namespace {

using Kind = PlaceFinding::Kind;

constexpr const char* kCertLine = "\tssl_cert = <";
constexpr const char* kKeyLine = "\tssl_key = <";

std::string ExpectedSnippet(const std::string& domain, const TlsPlaces& places) {
  std::string text = domain;
  const char* keyword = test::Ip(text) ? "local " : "local_name ";
  return keyword + domain + " {\n" + kCertLine + places.cert_link + "\n" + kKeyLine +
         places.key_link + "\n}\n";
}

void CheckLink(const std::string& link, const std::string& target,
               std::vector<PlaceFinding>& findings) {
  char found[PATH_MAX];
  const ssize_t length = ::readlink(link.c_str(), found, sizeof found);
  if (length < 0 && errno != EINVAL && errno != ENOENT) {
    throw mgr_file::FileError(link, "readlink");
  }
  if (length < 0) {
    findings.push_back({link, Kind::kWrongLink, "is no link"});
  } else if (std::string(found, static_cast<std::size_t>(length)) != target) {
    findings.push_back({link, Kind::kWrongLink, "does not lead to " + target});
  }
}

void CheckSnippet(const std::string& domain, const TlsPlaces& places,
                  std::vector<PlaceFinding>& findings) {
  if (!mgr_file::Exists(places.snippet)) {
    findings.push_back({places.snippet, Kind::kNoSnippet, "is missing"});
  } else if (mgr_file::ReadE(places.snippet) != ExpectedSnippet(domain, places)) {
    findings.push_back({places.snippet, Kind::kEditedSnippet, "was changed by hand"});
  }
}

// The path in a line that begins with `start`, when no file is there; else empty.
std::string MissingIn(const std::string& line, const std::string& start) {
  if (!str::StartsWith(line, start)) {
    return {};
  }
  const std::string path = str::RGetWord(line, " = <");
  return path.empty() || !mgr_file::Info(path, 2).IsMissed() ? std::string() : path;
}

}  // namespace

TlsPlaces PlacesOf(const std::string& domain) {
  const std::string links = AbsolutePath("dovecot-ssl-certs");
  return {mgr_file::ConcatPath(links, domain + ".crt"),
          mgr_file::ConcatPath(links, domain + ".key"),
          mgr_file::ConcatPath(SnippetFolder(), domain + ".conf")};
}

std::string SnippetFolder() { return AbsolutePath("dovecot-certconf"); }

std::vector<PlaceFinding> PlaceFindings(const std::string& domain, const std::string& cert,
                                        const std::string& key) {
  const TlsPlaces places = PlacesOf(domain);
  std::vector<PlaceFinding> findings;
  CheckLink(places.cert_link, cert, findings);
  CheckLink(places.key_link, key, findings);
  CheckSnippet(domain, places, findings);
  return findings;
}

std::string MissingFileOf(const std::string& snippet) {
  std::string rest = mgr_file::ReadE(snippet);
  str::GetWord(rest, '\n');
  const std::string cert = MissingIn(str::GetWord(rest, '\n'), kCertLine);
  const std::string key = MissingIn(str::GetWord(rest, '\n'), kKeyLine);
  return cert.empty() ? key : cert;
}

}  // namespace brisq_panel
