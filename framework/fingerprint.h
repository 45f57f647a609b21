#pragma once

#include <string>
#include <string_view>

#include "brisq_export.h"

/// A short text that stands for what is at a path, by which the journal knows later whether it is
/// still the same: content counts, owner, mode and times do not.
namespace fingerprint {

/// Of a path where nothing is.
constexpr const char* kNone = "none";

/// Of what is at the path; a link is not followed.
/// @throws mgr_err::Error "file" when it can't be told
BRISQ_API std::string At(const std::string& path);
/// Of a regular file with this content.
BRISQ_API std::string OfContent(std::string_view content);
/// Of a symbolic link that leads to `target`.
BRISQ_API std::string OfLink(const std::string& target);

BRISQ_API bool IsLink(const std::string& text);

}  // namespace fingerprint
