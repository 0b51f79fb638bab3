#pragma once

namespace qbdkr::test {

// Tell which sanitizer the build uses. Either one keeps freed memory, so the tests cannot judge the
// memory of a process. Either one also copies a message for each part of it that arrives: a message
// of 64 MiB takes up to a minute.
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
