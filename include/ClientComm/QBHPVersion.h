#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <ClientComm/Export.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

// The order of free-form version strings such as 2.1.0, 1.0b3 or "3.0 beta". A version that goes on
// with a dot or a number is newer than one that ends there; one that goes on with letters is a
// pre-release, and older. Characters are taken one UTF-16 unit at a time.

enum class CharacterType { digit = 0, other = 1, dot = 2 };

// The class of a string by its first character; a dot is one only when it stands alone. Throws
// RangeException for an empty string.
[[nodiscard]] QBDKR_EXPORT CharacterType typeOfCharacter(std::u16string_view string);

// The runs of digits, the single dots and the runs of other characters that make up a version.
[[nodiscard]] QBDKR_EXPORT std::vector<std::u16string> splitVersionString(Text version);

// -1 when a version orders before another, 0 when they are equal, 1 when it orders after.
[[nodiscard]] QBDKR_EXPORT int compareVersion(Text version, Text toVersion);

}  // namespace qbdkr
