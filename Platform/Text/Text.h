#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base/Export.h"

namespace qbdkr {

// Text is UTF-8 everywhere in this system. Where a rule counts UTF-16 units, these convert.

[[nodiscard]] QBDKR_EXPORT bool isValidUTF8(std::string_view text);

// How many UTF-16 units a text has; a byte that is not UTF-8 counts as one.
[[nodiscard]] QBDKR_EXPORT std::size_t utf16Length(std::string_view text);

// Bytes that are not UTF-8 become U+FFFD.
[[nodiscard]] QBDKR_EXPORT std::u16string utf16FromUTF8(std::string_view text);

// Units that are no character (half a pair) become U+FFFD.
[[nodiscard]] QBDKR_EXPORT std::string utf8FromUTF16(std::u16string_view text);

// The decimal value of a digit of any script; absent for every other UTF-16 unit, halves of
// surrogate pairs included.
[[nodiscard]] QBDKR_EXPORT std::optional<int> decimalDigitValue(char16_t unit);

// The platform's plain comparison: case-sensitive, canonically equivalent texts equal, otherwise by
// code point. -1, 0 or 1.
[[nodiscard]] QBDKR_EXPORT int compareText(std::u16string_view a, std::u16string_view b);

[[nodiscard]] QBDKR_EXPORT std::string lowercase(std::string_view text);

}  // namespace qbdkr
