#include <stdio.h>
#include <stdlib.h>
#include <xlocale.h>

#include <array>
#include <cmath>
#include <string>

#include "Platform/PropertyLists/NativeReal.h"

namespace qbdkr::propertylist {

namespace {

// The C++ library of the oldest supported system has no conversion of real numbers of its own.
locale_t plainLocale() {
  static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
  return plain;
}

// Tells whether a number is 0 as it is written, whatever its exponent.
bool isWrittenAsZero(const std::string& text) {
  return text.find_first_of("123456789") >= text.find_first_of("eE");
}

}  // namespace

std::string scientificText(double real) {
  std::array<char, 32> text{};
  for (int digits = 0; digits <= 16; ++digits) {  // after the first one
    snprintf_l(text.data(), text.size(), plainLocale(), "%.*e", digits, real);
    if (strtod_l(text.data(), nullptr, plainLocale()) == real) break;
  }
  return text.data();
}

// The call returns infinity or 0 for a number out of range.
std::optional<double> realFromDecimal(const std::string& text) {
  char* end = nullptr;
  const double value = strtod_l(text.c_str(), &end, plainLocale());
  if (text.empty() || end != text.c_str() + text.size()) return std::nullopt;
  if (std::isinf(value) || (value == 0 && !isWrittenAsZero(text))) return std::nullopt;
  return value;
}

}  // namespace qbdkr::propertylist
