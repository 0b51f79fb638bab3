#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base/Export.h"
#include "Platform/PropertyLists/PropertyList.h"

namespace qbdkr {

// The XML form. Absent when a text in it cannot be written as XML (not UTF-8, a control character),
// so that a caller never replaces a good file by an unreadable one.
[[nodiscard]] QBDKR_EXPORT std::optional<std::string> xmlPropertyList(const PropertyList& value);

}  // namespace qbdkr
