#pragma once

#include <cstdlib>
#include <memory>
#include <string_view>

#include "framework/conf_document.h"

/// What the fuzz programs of configuration files share.
namespace fuzz {

/// Ends the program, which libFuzzer reports with the input, unless the condition holds.
inline void Require(bool holds) {
  if (!holds) std::abort();
}

/// A document of colon-separated lines.
inline ConfDocument Parse(std::string_view text) {
  return ConfDocument(std::make_shared<ConfBytes>(text), mgr_token::Params{});
}

}  // namespace fuzz
