#pragma once

namespace support {

/// True in a build whose sanitizer makes everything slow, keeps what is freed, and answers what
/// would end the process itself: tests of time and memory mean nothing there.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
inline constexpr bool kSanitized = true;
#elif defined(__has_feature)
inline constexpr bool kSanitized =
    __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
inline constexpr bool kSanitized = false;
#endif

}  // namespace support
