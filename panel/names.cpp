#include "panel/names.h"

#include <idn2.h>
#include <sodium.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "framework/seal.h"
#include "panel/text_rules.h"

namespace brisq_panel {

namespace {

constexpr std::size_t kLongestLocalPart = 64;
constexpr std::size_t kLongestDomain = 253;
constexpr std::size_t kLongestLabel = 63;
constexpr std::size_t kLongestOwnerName = 32;
constexpr std::size_t kLongestHome = 1024;
constexpr std::size_t kLongestFileName = 255;
constexpr int kLargestQuota = 1 << 30;
constexpr std::size_t kLongestPassword = 511;
constexpr std::size_t kLongestBcryptPassword = 72;

bool IsLocalPartCharacter(char c) {
  return IsLower(c) || IsUpper(c) || IsDigit(c) || c == '.' || c == '-' || c == '_';
}

void RequireLeadingLetterOrDigit(const std::string& object, const std::string& text) {
  const char first = text.front();
  const bool beyond_ascii = (static_cast<unsigned char>(first) & 0x80) != 0;
  if (!IsLower(ToLower(first)) && !IsDigit(first) && !beyond_ascii) {
    throw Refused(object, "must start with a letter or digit");
  }
}

std::string Lowered(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), ToLower);
  return text;
}

// What the IDN library returns; freed with the library's own function.
using IdnText = std::unique_ptr<char, decltype(&idn2_free)>;

mgr_err::Error NotADomain(const std::string& reason) {
  return Refused("domain", "not a valid domain name (" + reason + ")");
}

// What the library has nothing to say of: no A-label, nothing beyond ASCII, nothing empty.
bool IsPlain(const std::string& domain) {
  return domain.size() <= kLongestDomain && domain.find("--") == std::string::npos &&
         domain.find("..") == std::string::npos && !domain.starts_with('.') &&
         std::all_of(domain.begin(), domain.end(),
                     [](char c) { return IsLower(c) || IsDigit(c) || c == '-' || c == '.'; });
}

std::string ToAscii(const std::string& domain) {
  if (IsPlain(domain)) {
    return domain;
  }
  char* ascii = nullptr;
  // Without IDN2_USE_STD3_ASCII_RULES, which does not refuse "a_b.org" but makes "ab.org" of it.
  const int flags = IDN2_NFC_INPUT | IDN2_NONTRANSITIONAL;
  const int result = idn2_to_ascii_8z(domain.c_str(), &ascii, flags);
  const IdnText owned(ascii, &idn2_free);
  if (result != IDN2_OK) {
    throw NotADomain(idn2_strerror(result));
  }
  return Lowered(ascii);
}

std::string ToUnicode(const std::string& domain) {
  char* unicode = nullptr;
  const int result = idn2_to_unicode_8z8z(domain.c_str(), &unicode, 0);
  const IdnText owned(unicode, &idn2_free);
  if (result != IDN2_OK) {
    throw NotADomain(idn2_strerror(result));
  }
  return unicode;
}

// The library lets all of ASCII pass and maps look-alikes to it, "/" and "%" among them.
void RequireHostName(std::string_view name) {
  while (!name.empty()) {
    const std::string_view label = name.substr(0, name.find('.'));
    const bool plain = std::all_of(label.begin(), label.end(),
                                   [](char c) { return IsLower(c) || IsDigit(c) || c == '-'; });
    if (label.empty() || label.size() > kLongestLabel || !plain || label.front() == '-' ||
        label.back() == '-') {
      throw NotADomain("letters, digits and '-' in parts of 1 to 63 bytes");
    }
    name.remove_prefix(std::min(name.size(), label.size() + 1));
  }
}

// One domain must not have two stored forms: an A-label that nothing maps to would be a second one.
void RequireOwnForm(const std::string& ascii) {
  if (ascii.find("xn--") != std::string::npos && ToAscii(ToUnicode(ascii)) != ascii) {
    throw NotADomain("its A-label is not in its one form");
  }
}

void RequireNormalised(const std::string& home) {
  std::string_view rest(home);
  while (!rest.empty()) {
    rest.remove_prefix(1);
    const std::string_view part = rest.substr(0, rest.find('/'));
    if (part.empty() || part == "." || part == "..") {
      throw Refused("home", "must have no '.', '..', doubled or closing '/' in it");
    }
    RefuseLonger("home", part, kLongestFileName);
    rest.remove_prefix(part.size());
  }
}

std::string SchemeName(const std::string& scheme) {
  std::string name = Lowered(scheme);
  return name.substr(0, name.find('.'));  // ".b64" and ".hex" name an encoding only
}

bool IsBlank(char c) { return c == ' '; }

}  // namespace

Address ParseAddress(const std::string& text) {
  if (std::count(text.begin(), text.end(), '@') != 1) {
    throw Refused("address", "must be LOCALPART@DOMAIN");
  }
  const std::size_t at = text.find('@');
  return {CheckLocalPart(text.substr(0, at)), CheckDomain(text.substr(at + 1))};
}

std::string CheckLocalPart(const std::string& text) {
  const std::string object = "mailbox name";
  RefuseEmpty(object, text);
  RefuseControl(object, text);
  RefuseAnyOf(object, text, ":%/");
  RefuseLonger(object, text, kLongestLocalPart);
  RequireLeadingLetterOrDigit(object, text);
  if (!std::all_of(text.begin(), text.end(), IsLocalPartCharacter)) {
    throw Refused(object, "only letters, digits, '.', '-' and '_' allowed");
  }
  if (text.back() == '.' || text.find("..") != std::string::npos) {
    throw Refused(object, "'.' not allowed at the end or beside another '.'");
  }
  return Lowered(text);
}

std::string CheckDomain(const std::string& text) {
  const std::string object = "domain";
  RefuseEmpty(object, text);
  RefuseControl(object, text);
  RefuseInvisible(object, text);
  RefuseAnyOf(object, text, ":%/ ");
  RequireLeadingLetterOrDigit(object, text);
  // Converting costs time with the square of the length; no form is shorter than a quarter.
  RefuseLonger(object, text, 4 * kLongestDomain);
  std::string ascii = ToAscii(text);
  if (ascii.empty() || ascii.back() == '.') {
    throw Refused(object, "'.' not allowed at the end");
  }
  RefuseLonger(object, ascii, kLongestDomain);
  RequireHostName(ascii);
  RequireOwnForm(ascii);
  return ascii;
}

std::string CheckOwnerName(const std::string& text) {
  const std::string object = "owner name";
  RefuseEmpty(object, text);
  RefuseControl(object, text);
  RefuseLonger(object, text, kLongestOwnerName);
  if (!IsLower(text.front()) && text.front() != '_') {
    throw Refused(object, "must start with a lower-case letter or '_'");
  }
  if (!std::all_of(text.begin(), text.end(),
                   [](char c) { return IsLower(c) || IsDigit(c) || c == '-' || c == '_'; })) {
    throw Refused(object, "only lower-case letters, digits, '-' and '_' allowed");
  }
  return text;
}

std::string CheckHome(const std::string& text) {
  const std::string object = "home";
  RefuseEmpty(object, text);
  RefuseControl(object, text);
  RefuseAnyOf(object, text, ":%$");
  RefuseLonger(object, text, kLongestHome);
  if (text.front() != '/') {
    throw Refused(object, "must be an absolute path");
  }
  RequireNormalised(text);
  return text;
}

void CheckHomeBelow(const std::string& home, const std::string& owner_home) {
  const std::string prefix = owner_home + "/";
  if (home.size() <= prefix.size() || home.compare(0, prefix.size(), prefix) != 0) {
    throw Refused("home", "must lie below its owner's home, " + owner_home);
  }
}

int ParseQuota(const std::string& text) {
  const std::string object = "quota";
  if (text == "none") {
    return 0;
  }
  RefuseControl(object, text);
  RefuseEmpty(object, text);
  std::string digits = text;
  long long unit = 1;
  if (digits.back() == 'M' || digits.back() == 'G') {
    unit = digits.back() == 'G' ? 1024 : 1;
    digits.pop_back();
    RefuseEmpty(object, digits);
  }
  if (!std::all_of(digits.begin(), digits.end(), IsDigit)) {
    throw Refused(object, "must be a whole number of megabytes, like 500, 500M or 2G, or none");
  }
  const std::size_t significant =
      digits.size() - std::min(digits.find_first_not_of('0'), digits.size());
  const bool too_many = significant > 10;
  const long long megabytes = too_many ? 0 : std::strtoll(digits.c_str(), nullptr, 10) * unit;
  if (too_many || megabytes > kLargestQuota) {
    throw Refused(object, "too large (max " + std::to_string(kLargestQuota) + "M)");
  }
  return static_cast<int>(megabytes);
}

std::string QuotaText(int megabytes) {
  return megabytes == 0 ? std::string() : std::to_string(megabytes);
}

int CheckId(const std::string& object, long long number) {
  if (number == 0) {
    throw Refused(object, "0 not allowed");
  }
  if (number < 0 || number > 2147483647) {
    throw Refused(object, "must be 1 to 2147483647");
  }
  return static_cast<int>(number);
}

void CheckPassword(const std::string& password, const std::string& scheme) {
  const std::string object = "password";
  RefuseEmpty(object, password);
  RefuseControl(object, password);
  const bool bcrypt = SchemeName(scheme) == "blf-crypt";
  RefuseLonger(object, password, bcrypt ? kLongestBcryptPassword : kLongestPassword);
  if (!KeepsClearText(scheme)) {
    return;
  }
  if (password.find(':') != std::string::npos) {
    throw Refused(object, "':' not allowed with a scheme that keeps the clear text");
  }
  if (IsBlank(password.front()) || IsBlank(password.back())) {
    throw Refused(object, "blank not allowed at an end with a scheme that keeps the clear text");
  }
}

bool KeepsClearText(const std::string& scheme) {
  const std::string lowered = Lowered(scheme);
  return lowered == "plain" || lowered == "cleartext" || lowered == "plain-trunc";
}

std::string GeneratePassword() {
  constexpr std::string_view kAlphabet =
      "ABCDEFGHJKLMNPQRSTUVWXYZabcdefghijkmnopqrstuvwxyz23456789";
  static_assert(kAlphabet.size() == 57);
  constexpr std::size_t kLength = 24;
  std::string password(kLength, '\0');
  for (char& c : password) {
    c = kAlphabet[randombytes_uniform(static_cast<std::uint32_t>(kAlphabet.size()))];
  }
  return password;
}

}  // namespace brisq_panel
