#pragma once

#include <optional>

#include <ClientComm/PropertyList.h>

#include "Platform/Base/CoreFoundationRefMacOS.h"
#include "Platform/PropertyLists/PropertyListBounds.h"

namespace qbdkr {

// Convert the system's property list to ours, for the settings and for a bundle's information: the
// files themselves are read by parsePropertyList(). Its dictionaries have no order: their keys come
// sorted. Entries that no property list can hold (a URL, say) are left out of dictionaries, an
// array with such an element as a whole, so nothing that was read here may be written back. Absent
// if the list itself is invalid, or exceeds the bounds on levels or values.
[[nodiscard]] std::optional<PropertyList> propertyListFrom(CFPropertyListRef list,
                                                           const propertylist::Bounds& bounds = {});
[[nodiscard]] std::optional<PropertyList::Dictionary> dictionaryFrom(CFDictionaryRef dictionary);

// Converts our property list to the system's. Null for a text that is not UTF-8, a number that no
// property list has, or more than 256 levels.
[[nodiscard]] CFRef<CFPropertyListRef> propertyListFor(const PropertyList& list);

}  // namespace qbdkr
