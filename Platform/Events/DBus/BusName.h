#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qbdkr {

// Returns the well-known name that an application with this bundle identifier owns. Bytes that a
// bus name does not allow, a leading digit of an element included, become "_" and two lower-case
// hex digits. Absent for an identifier that cannot be a bus name: fewer than two elements, an empty
// one, a name of more than 255 bytes.
[[nodiscard]] std::optional<std::string> busNameOfIdentifier(std::string_view identifier);

}  // namespace qbdkr
