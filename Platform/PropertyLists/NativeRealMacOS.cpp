#include <stdio.h>
#include <stdlib.h>
#include <xlocale.h>

#include <array>
#include <string>

#include "Platform/PropertyLists/NativeReal.h"

namespace qbdkr::propertylist {

// The C++ library of the oldest supported system has no std::to_chars() for real numbers.
std::string scientificText(double real) {
  static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
  std::array<char, 32> text{};
  for (int digits = 0; digits <= 16; ++digits) {  // after the first one
    snprintf_l(text.data(), text.size(), plain, "%.*e", digits, real);
    if (strtod_l(text.data(), nullptr, plain) == real) break;
  }
  return text.data();
}

}  // namespace qbdkr::propertylist
