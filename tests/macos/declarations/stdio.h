#pragma once
#pragma GCC system_header

// The additions of macOS to POSIX: renamex_np, of rename(2),
// https://keith.github.io/xcode-man-pages/rename.2.html

#include_next <stdio.h>

// rename(2); the numbers are those of the binding "libc" for Apple's systems.
#undef RENAME_SWAP
#define RENAME_SWAP 0x00000002
#undef RENAME_EXCL
#define RENAME_EXCL 0x00000004

#ifdef __cplusplus
extern "C" {
#endif
// rename(2)
int renamex_np(const char* from, const char* to, unsigned int flags);
#ifdef __cplusplus
}
#endif
