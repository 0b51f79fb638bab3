#pragma once

namespace qbdkr::test {

// Which sanitizer the tests and what they test are built with. Either keeps what was freed, so that
// memory cannot be judged; that of threads also copies a message for each part of it that arrives,
// and takes a minute for one of 64 MiB.
#if defined(__SANITIZE_THREAD__)
inline constexpr bool hasThreadSanitizer = true;
#else
inline constexpr bool hasThreadSanitizer = false;
#endif
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool hasSanitizer = true;
#else
inline constexpr bool hasSanitizer = hasThreadSanitizer;
#endif

}  // namespace qbdkr::test
