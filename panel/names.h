#pragma once

#include <string>

#include "brisq_export.h"

/// Rules for everything that a user may give as a name or a value. Each function checks one kind of
/// input before anything is touched, and refuses with mgr_err::Error "value": the object names the
/// input, the value the rule; the refused text itself is never in the error. No state, any thread.
namespace brisq_panel {

/// A mailbox's address in the one form in which names are stored.
struct BRISQ_API Address {
  std::string local;   ///< lower case
  std::string domain;  ///< A-labels, lower case

  std::string Full() const { return local + "@" + domain; }
};

/// Takes an address apart and brings both parts into their stored form.
/// @throws mgr_err::Error "value" with object "address" when there is not exactly one "@"; else as
/// CheckLocalPart and CheckDomain
BRISQ_API Address ParseAddress(const std::string& text);

/// Stored form of a local part: letters, digits, ".", "-" and "_", at most 64 bytes, beginning with
/// a letter or digit, no "." at the end or beside another; in lower case. Object "mailbox name".
BRISQ_API std::string CheckLocalPart(const std::string& text);

/// Stored form of a domain: what libidn2 makes of it, in A-labels and lower case, at most 253
/// bytes; no "." at the end. Object "domain".
BRISQ_API std::string CheckDomain(const std::string& text);

/// An owner's name, as for a user of the system: lower-case letters, digits, "-" and "_", beginning
/// with a letter or "_", at most 32 bytes. Object "owner name".
BRISQ_API std::string CheckOwnerName(const std::string& text);

/// A home directory: absolute, without "." and "..", doubled slashes and a slash at the end, valid
/// UTF-8 without control characters, ":", "%" and "$", at most 1024 bytes and 255 between slashes;
/// not "/". Object "home".
BRISQ_API std::string CheckHome(const std::string& text);

/// Refuses a mailbox's home that does not lie below its owner's; both are in checked form. Object
/// "home".
BRISQ_API void CheckHomeBelow(const std::string& home, const std::string& owner_home);

/// Megabytes of a size: a whole number alone or with "M" (megabytes) or "G" (1024 megabytes), at
/// most 1073741824 (one pebibyte). No limit is 0, for zero and for "none". Object "quota".
BRISQ_API int ParseQuota(const std::string& text);

/// A quota's text in the table: decimal megabytes, empty for no limit.
BRISQ_API std::string QuotaText(int megabytes);

/// A user or group number: 1 to 2147483647.
/// @param object  "uid" or "gid", named by the error
BRISQ_API int CheckId(const std::string& object, long long number);

/// A password: valid UTF-8, not empty, without control characters (line breaks, NUL, DEL and C1
/// among them), at most 511 bytes: more makes the crypt schemes fail; at most 72 for the scheme
/// BLF-CRYPT, which ignores the rest. The schemes that keep the clear text can't hold ":" and
/// white space at the ends. Object "password".
/// @param scheme  the wished password scheme; empty when unknown
BRISQ_API void CheckPassword(const std::string& password, const std::string& scheme);

/// True for the schemes whose hash is the password itself.
BRISQ_API bool KeepsClearText(const std::string& scheme);

/// A password of 24 characters from the system's random source, of 57 letters and digits that can't
/// be taken for one another: 139 bits.
BRISQ_API std::string GeneratePassword();

}  // namespace brisq_panel
