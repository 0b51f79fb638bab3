#pragma once
#pragma GCC system_header

// The additions of macOS to POSIX: pthread_main_np(3), non-zero on the main thread,
// https://keith.github.io/xcode-man-pages/pthread_main_np.3.html

#include_next <pthread.h>

#ifdef __cplusplus
extern "C" {
#endif
// pthread_main_np(3)
int pthread_main_np(void);
#ifdef __cplusplus
}
#endif
