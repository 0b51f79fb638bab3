#pragma once

// xlocale(3), and printf_l(3), of which this is one: the locale stands right before the format.
// https://developer.apple.com/library/archive/documentation/System/Conceptual/ManPages_iPhoneOS/man3/xlocale.3.html

#include <locale.h>
#include <stdio.h>
#include <stdlib.h>

#ifdef __cplusplus
extern "C" {
#endif
// printf_l(3), snprintf_l
int snprintf_l(char* str, size_t size, locale_t loc, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
#ifdef __cplusplus
}
#endif
