#include <xlocale.h>

#include <cstdarg>
#include <cstdio>

int snprintf_l(char* str, size_t size, locale_t loc, const char* format, ...) {
  const locale_t previous = uselocale(loc);
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(str, size, format, arguments);
  va_end(arguments);
  uselocale(previous);
  return length;
}
