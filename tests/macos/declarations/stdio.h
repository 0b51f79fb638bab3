#pragma once
#pragma GCC system_header

// What macOS has beyond POSIX: renamex_np, rename(2). RENAME_EXCL: golang.org/x/sys/unix for
// darwin. https://keith.github.io/xcode-man-pages/rename.2.html

#include_next <stdio.h>

#undef RENAME_EXCL
#define RENAME_EXCL 0x00000004

#ifdef __cplusplus
extern "C" {
#endif
int renamex_np(const char* from, const char* to, unsigned int flags);
#ifdef __cplusplus
}
#endif
