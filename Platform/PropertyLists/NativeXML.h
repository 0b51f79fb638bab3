#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Platform/PropertyLists/PropertyList.h"
#include "Platform/PropertyLists/PropertyListBounds.h"

namespace qbdkr::propertylist {

// Reads the XML form: valid UTF-8 without a byte-order mark and without its declaration, bounded
// (XMLBounds.h).
[[nodiscard]] std::optional<PropertyList> readXML(std::string_view utf8, const Bounds& bounds);

// The XML form of a value that was found fit for it; absent when it gets longer than it may.
[[nodiscard]] std::optional<std::string> writeXML(const PropertyList& list);

}  // namespace qbdkr::propertylist
