#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <ClientComm/Export.h>
#include <ClientComm/PropertyList.h>

namespace qbdkr {

// A text argument, in UTF-8. Absent and empty texts differ until they are sent.
using Text = std::optional<std::string_view>;

// A text result.
using String = std::optional<std::string>;

// The functions below run on any thread, and do not block.

// Returns the integer at the beginning of a text, after blanks and an optional sign, clamped to 32
// bits; 0 if the text does not begin with an integer.
[[nodiscard]] QBDKR_EXPORT std::int32_t intValue(std::string_view text);

// Returns true if, after blanks, an optional sign and zeros, a text begins with Y, y, T, t or a
// digit from 1 to 9.
[[nodiscard]] QBDKR_EXPORT bool boolValue(std::string_view text);

// Does the same for a text of a property list. A flag is itself, a number is true unless it is 0,
// and a value of any other type is false.
[[nodiscard]] QBDKR_EXPORT bool boolValue(const PropertyList& value);

// Returns a text result as an argument. Valid as long as the result.
[[nodiscard]] inline Text view(const String& string) {
  return string ? Text(*string) : std::nullopt;
}

}  // namespace qbdkr
