#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <ClientComm/Export.h>
#include <ClientComm/PropertyList.h>

namespace qbdkr::propertylist {

// Convert scalars to text and back. The locale is ignored: a file means the same everywhere. Absent
// if the text is not exactly one such scalar.
[[nodiscard]] std::optional<PropertyList::Integer> integerFromText(std::string_view text);
[[nodiscard]] std::optional<double> realFromText(std::string_view text);
[[nodiscard]] QBDKR_EXPORT std::optional<PropertyList::Date> dateFromText(std::string_view text);

// Absent if no property list can hold the magnitude.
[[nodiscard]] std::optional<std::string> textFromInteger(PropertyList::Integer integer);
// Writes the fewest digits that read as the same number.
[[nodiscard]] std::string textFromReal(double real);
// Rounds down to whole seconds, as the form has no fractions. Absent outside the years 0 to 9999.
[[nodiscard]] QBDKR_EXPORT std::optional<std::string> textFromDate(PropertyList::Date date);

inline constexpr std::string_view base64Digits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
[[nodiscard]] QBDKR_EXPORT std::string base64FromBytes(std::string_view bytes);

// Returns the value of a hexadecimal digit; -1 for every other character.
[[nodiscard]] constexpr int hexDigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace qbdkr::propertylist
