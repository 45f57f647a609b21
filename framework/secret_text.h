#pragma once

#include <string>
#include <string_view>

#include "brisq_export.h"
#include "framework/secret_buffer.h"

namespace mgr_proc {

/// Remembers a secret without holding it in readable form: beside random bytes that turn it back.
/// For one thread at a time.
class BRISQ_API MaskedSecret {
 public:
  MaskedSecret() = default;
  explicit MaskedSecret(std::string_view secret);

  /// Writes the secret, as it was, into a buffer that wipes itself.
  void Reveal(SecretBuffer& to) const;

  /// True when it is this text; how long the look takes tells nothing but their lengths.
  bool Is(std::string_view text) const noexcept;

 private:
  std::string mask_;
  std::string masked_;
};

/// `text` with "***" wherever a line of `secrets` stands in it. One of less than 4 bytes counts
/// only where it stands alone, not inside of a word: blanking every letter of a message would tell
/// more than it hides.
BRISQ_API std::string WithoutSecrets(std::string text, std::string_view secrets);

/// `text` with "***" in place of an end with which a line of `secrets` begins, from 4 bytes on: of
/// a text that was cut.
BRISQ_API std::string WithoutTornSecret(std::string text, std::string_view secrets);

}  // namespace mgr_proc
