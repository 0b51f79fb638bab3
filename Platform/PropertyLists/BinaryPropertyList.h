#pragma once

#include <optional>
#include <string_view>

#include <ClientComm/PropertyList.h>

#include "Platform/PropertyLists/PropertyListBounds.h"

namespace qbdkr::propertylist {

// Reads the binary form. Absent if the bytes have another form or exceed a bound.
[[nodiscard]] std::optional<PropertyList> readBinary(std::string_view bytes, const Bounds& bounds);

}  // namespace qbdkr::propertylist
