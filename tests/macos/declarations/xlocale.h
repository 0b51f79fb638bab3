#pragma once

// xlocale(3), printf_l(3), strtod_l(3): a null locale is that of C.
// https://developer.apple.com/library/archive/documentation/System/Conceptual/ManPages_iPhoneOS/man3/xlocale.3.html

#include <locale.h>
#include <stdio.h>
#include <stdlib.h>

#ifdef __cplusplus
extern "C" {
#endif
int snprintf_l(char* str, size_t size, locale_t loc, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
#ifdef __cplusplus
}
#endif
