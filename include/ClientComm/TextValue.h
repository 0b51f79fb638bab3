#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <ClientComm/Export.h>
#include <ClientComm/PropertyList.h>

namespace qbdkr {

// A text argument, UTF-8. Absent and empty are different until the text is sent.
using Text = std::optional<std::string_view>;

// A text result.
using String = std::optional<std::string>;

// The integer that a text begins with, after blanks and an optional sign, clamped to 32 bits; 0
// when there is none.
[[nodiscard]] QBDKR_EXPORT std::int32_t intValue(std::string_view text);

// True when, after blanks, an optional sign and zeros, a text begins with Y, y, T, t or a digit
// from 1 to 9.
[[nodiscard]] QBDKR_EXPORT bool boolValue(std::string_view text);

// The same for a value of a property list: a flag is itself, a number is true when it is not zero,
// anything else than these and text is false.
[[nodiscard]] QBDKR_EXPORT bool boolValue(const PropertyList& value);

// A string's text as an argument.
[[nodiscard]] inline Text view(const String& string) {
  return string ? Text(*string) : std::nullopt;
}

}  // namespace qbdkr
