#pragma once

namespace qbdkr::test {

// Which sanitizer the tests and what they test are built with. Either keeps what was freed, so that
// memory cannot be judged, and copies a message for each part of it that arrives, so that one of
// 64 MiB takes up to a minute.
#if defined(__SANITIZE_THREAD__)
inline constexpr bool hasThreadSanitizer = true;
#else
inline constexpr bool hasThreadSanitizer = false;
#endif
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool hasAddressSanitizer = true;
#else
inline constexpr bool hasAddressSanitizer = false;
#endif
inline constexpr bool hasSanitizer = hasAddressSanitizer || hasThreadSanitizer;

}  // namespace qbdkr::test
