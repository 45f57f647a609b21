#pragma once

#include <functional>
#include <string>

#include "brisq_export.h"

/// Sealing of texts that must not lie in the clear: secret-key encryption with authentication, by
/// libsodium. Any thread.
namespace mgr_seal {

/// True when texts are kept that were sealed; asked on a thread that seals.
using InUse = std::function<bool()>;

/// Names the key file, an absolute path, and forgets a key that was read from another one. The file
/// is made, 0600 and with a fresh key, when something is sealed for the first time; of several
/// processes that make it at once one wins and all use its key. It must be kept as long as what was
/// sealed: without it nothing can be opened again.
/// @param in_use  a missing file is not made while this is true: a fresh key would hide that the
///                old one is lost; empty for never
BRISQ_API void SetKeyFile(const std::string& path, InUse in_use = {});

/// A printable text that holds `clear`; another one at every call.
/// @throws mgr_err::Error "file" when the key file can't be read or made, is no key, is open to
/// other users, or is missing while sealed texts are kept; "internal" when no key file was named
BRISQ_API std::string Seal(const std::string& clear);

/// What was sealed. The caller wipes it when it is done with it.
/// @throws mgr_err::Error "db" when `sealed` was not made by Seal with this key; "file" when the
/// key file is missing; as Seal
BRISQ_API std::string Open(const std::string& sealed);

/// Overwrites the text's memory and empties it.
BRISQ_API void Wipe(std::string& secret) noexcept;

/// A copy of a secret that is wiped at the end of its life.
class BRISQ_API Secret {
 public:
  explicit Secret(std::string text) : text_(std::move(text)) {}
  ~Secret() { Wipe(text_); }
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;

  const std::string& text() const noexcept { return text_; }

 private:
  std::string text_;
};

}  // namespace mgr_seal
