#pragma once

namespace brisq {

inline constexpr const char* kVersion = "0.1.0";

}  // namespace brisq
