#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base/Export.h"
#include "Platform/PropertyLists/PropertyList.h"
#include "Platform/PropertyLists/PropertyListBounds.h"

namespace qbdkr {

// The strings-file form, in UTF-8: one line per pair, a quoted key, an equals sign, a quoted value
// and a semicolon. Values that are not text are written in their own old-style form. Absent when a
// text is not UTF-8.
[[nodiscard]] QBDKR_EXPORT std::optional<std::string> stringsFileText(
    const PropertyList::Dictionary& dictionary);

namespace propertylist {

// Reads the old-style text form, of which a strings file is one: valid UTF-8 without a byte-order
// mark.
[[nodiscard]] std::optional<PropertyList> readText(std::string_view utf8, const Bounds& bounds);

}  // namespace propertylist
}  // namespace qbdkr
