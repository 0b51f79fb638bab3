#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <ClientComm/PropertyList.h>

#include "Platform/PropertyLists/PropertyListBounds.h"

namespace qbdkr::propertylist {

// Reads the XML form: valid UTF-8 without a byte-order mark or an XML declaration, which passed
// isBoundedXML(). Absent if it is not a property list or exceeds a bound.
[[nodiscard]] std::optional<PropertyList> readXML(std::string_view utf8, const Bounds& bounds);

// Returns the first fault of valid UTF-8 that readXML() does not read, as "line 7: mismatched tag".
// An XML declaration may precede the text.
[[nodiscard]] std::string faultOfXML(std::string_view utf8, const Bounds& bounds);

// Returns the XML form of a value that was found fit for it; absent if it gets too long.
[[nodiscard]] std::optional<std::string> writeXML(const PropertyList& list);

}  // namespace qbdkr::propertylist
