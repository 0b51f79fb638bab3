#pragma once

#include <optional>
#include <string>

#include <ClientComm/Export.h>
#include <ClientComm/PropertyList.h>

namespace qbdkr {

// Returns the XML form of a value. Absent if it could not be read again: a text that XML cannot
// hold (not UTF-8, a control character), a number or date out of range, or a bound exceeded. A
// caller thus never replaces a good file by an unreadable one. Any thread.
[[nodiscard]] QBDKR_EXPORT std::optional<std::string> xmlPropertyList(const PropertyList& value);

}  // namespace qbdkr
