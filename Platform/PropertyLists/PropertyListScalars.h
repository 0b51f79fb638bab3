#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Platform/PropertyLists/PropertyList.h"

namespace qbdkr::propertylist {

// Scalars as text. Never those of the locale: a file means the same everywhere.
[[nodiscard]] std::optional<PropertyList::Integer> integerFromText(std::string_view text);
[[nodiscard]] std::optional<PropertyList::Date> dateFromText(std::string_view text);

// Absent for a magnitude that no property list can hold.
[[nodiscard]] std::optional<std::string> textFromInteger(PropertyList::Integer integer);
// As few digits as read as the same number.
[[nodiscard]] std::string textFromReal(double real);
// Whole seconds, as the form has no fractions. Absent outside the years 0 to 9999.
[[nodiscard]] std::optional<std::string> textFromDate(PropertyList::Date date);

// The value of a hexadecimal digit; -1 for every other character.
[[nodiscard]] constexpr int hexDigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace qbdkr::propertylist
