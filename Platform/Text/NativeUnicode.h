#pragma once

#include <string>
#include <string_view>

namespace qbdkr {

// What Text.cpp asks of the system's character tables. Half a pair is a unit like any other here,
// and stays what it is.

// Whether a UTF-16 unit is a decimal digit of any script.
[[nodiscard]] bool isDecimalDigit(char16_t unit);

// The canonical decomposition (form D): what is canonically equivalent decomposes to the same text.
[[nodiscard]] std::u16string canonicalDecomposition(std::u16string_view text);

[[nodiscard]] std::string lowercaseOfValid(std::string_view utf8);

}  // namespace qbdkr
