#pragma once

#include <optional>

#include "Platform/Base/CoreFoundationRefMacOS.h"
#include "Platform/PropertyLists/PropertyList.h"
#include "Platform/PropertyLists/PropertyListBounds.h"

namespace qbdkr {

// The system's property list as ours. A dictionary has no order there; its keys come sorted.
// Entries that no property list has (a URL, say, in a bundle's information) are left out of
// dictionaries. Absent for what is itself none, and beyond the bounds on levels and values.
[[nodiscard]] std::optional<PropertyList> propertyListFrom(CFPropertyListRef list,
                                                           const propertylist::Bounds& bounds = {});
[[nodiscard]] std::optional<PropertyList::Dictionary> dictionaryFrom(CFDictionaryRef dictionary);

// Ours as the system's. Null for a text that is not UTF-8, a number no property list has, or more
// than 256 levels.
[[nodiscard]] CFRef<CFPropertyListRef> propertyListFor(const PropertyList& list);

}  // namespace qbdkr
