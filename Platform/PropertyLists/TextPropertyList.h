#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <ClientComm/Export.h>
#include <ClientComm/PropertyList.h>

#include "Platform/PropertyLists/PropertyListBounds.h"

namespace qbdkr {

// Returns the strings-file form, in UTF-8: one line per pair, a quoted key, an equals sign, a
// quoted value and a semicolon. Numbers and dates are quoted as well; data and containers have
// their own old-style form. Absent if a text is not UTF-8, a number or date is out of range, or a
// bound is exceeded. Any thread.
[[nodiscard]] QBDKR_EXPORT std::optional<std::string> stringsFileText(
    const PropertyList::Dictionary& dictionary);

namespace propertylist {

// Reads the old-style text form, strings files included: valid UTF-8 without a byte-order mark.
// Absent if the text has another form or exceeds a bound.
[[nodiscard]] std::optional<PropertyList> readText(std::string_view utf8, const Bounds& bounds);

}  // namespace propertylist
}  // namespace qbdkr
