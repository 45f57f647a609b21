#include "panel/stored_password.h"

#include <crypt.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <optional>

#include "email.h"
#include "framework/seal.h"
#include "framework/secret_text.h"
#include "mgr_cf.h"
#include "panel/line_saves.h"
#include "panel/names.h"
#include "panel/password_line.h"

namespace brisq_panel {

namespace {

struct Hash {
  std::string scheme;
  std::string body;
};

bool IsOfScheme(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '.';
}

bool IsOfBody(char c) { return c > ' ' && c < 0x7F && c != ':'; }

// "{SCHEME}BODY" taken apart.
std::optional<Hash> Parse(const std::string& text) {
  const std::size_t end = text.find('}');
  if (text.empty() || text.front() != '{' || end == std::string::npos) {
    return std::nullopt;
  }
  Hash hash{text.substr(1, end - 1), text.substr(end + 1)};
  if (hash.scheme.empty() || hash.body.empty() ||
      !std::all_of(hash.scheme.begin(), hash.scheme.end(), IsOfScheme)) {
    return std::nullopt;
  }
  return hash;
}

// Work space that holds traces of the password.
struct CryptSpace {
  crypt_data data{};
  ~CryptSpace() { ::explicit_bzero(&data, sizeof data); }
};

// False when crypt(3) makes another hash of the password; what it does not know may be one.
bool MayBeHashOf(const std::string& body, const std::string& password) {
  if (body.front() != '$') {
    return true;
  }
  const auto space = std::make_unique<CryptSpace>();
  const char* const made = ::crypt_r(password.c_str(), body.c_str(), &space->data);
  return made == nullptr || *made == '*' || body == made;
}

std::string ProblemOfLine(const std::string& address, const mgr_proc::MaskedSecret& secret) {
  mgr_proc::SecretBuffer revealed;
  secret.Reveal(revealed);
  std::string password(revealed.Text());
  std::string problem =
      HashProblem(StoredHash(address).value_or(""), password, mgr_cf::GetParam("DovecotPwScheme"));
  mgr_seal::Wipe(password);
  return problem;
}

}  // namespace

std::string UnfitAnswer(const mgr_err::Error& error) {
  // The password itself is checked before, so this is what the tool made of it.
  return error.type() == "value" && error.object() == "passwd"
             ? "its answer can't stand in a line: " + error.value()
             : std::string();
}

std::string FormProblem(const std::string& hash, const std::string& scheme) {
  if (hash.empty()) {
    return "it gave no hash of the password";
  }
  const std::optional<Hash> parsed = Parse(hash);
  if (!parsed) {
    return "its answer is no hash";
  }
  if (KeepsClearText(parsed->scheme)) {
    return KeepsClearText(scheme)
               ? std::string()
               : "the password would be kept in the clear, as the scheme " +
                     (scheme.empty() ? "CRAM-MD5" : scheme) + " is not to be had from it";
  }
  // crypt(3) marks a failure by an asterisk.
  const bool is_hash = parsed->body.front() != '*' &&
                       std::all_of(parsed->body.begin(), parsed->body.end(), IsOfBody);
  return is_hash ? "" : "its answer is no hash";
}

std::string HashProblem(const std::string& hash, const std::string& password,
                        const std::string& scheme) {
  std::string problem = FormProblem(hash, scheme);
  if (!problem.empty()) {
    return problem;
  }
  const Hash parsed = *Parse(hash);
  if (KeepsClearText(parsed.scheme)) {
    return parsed.body == password ? "" : "its answer is not the password";
  }
  return MayBeHashOf(parsed.body, password) ? "" : "its answer is the hash of another password";
}

void CheckStoredPassword(const std::string& address, const std::string& password) {
  if (mgr_cf::GetPath("dovecot-passwd").empty()) {
    return;
  }
  const std::string whose = LineSaves::Active() ? address + ": " : "";
  LineSaves::WhenSaved([address, whose, secret = mgr_proc::MaskedSecret(password)] {
    const std::string problem = ProblemOfLine(address, secret);
    if (!problem.empty()) {
      throw email::Fail("doveadm", whose + problem);
    }
  });
}

}  // namespace brisq_panel
