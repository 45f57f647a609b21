#pragma once

#include <string>

#include "brisq_export.h"
#include "email.h"

/// The panel's side of the email module: which back-ends are at work.
namespace brisq_panel {

/// The mail back-end that was registered last.
/// @throws mgr_err::Error "plugin" when there is none, with the reason set by SetBackendProblem
BRISQ_API email::Pop3Interface& MailBackend();

/// True when one is registered.
BRISQ_API bool HasMailBackend() noexcept;

/// The password back-end that was registered last; null when there is none: the panel keeps
/// passwords itself then.
BRISQ_API email::PasswdInterface* PasswordBackend() noexcept;

/// Sets why there may be no mail back-end, in words.
BRISQ_API void SetBackendProblem(const std::string& reason);

/// As if nothing had been registered.
BRISQ_API void ForgetBackends() noexcept;

}  // namespace brisq_panel
