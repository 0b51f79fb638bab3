#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <ClientComm/Export.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

// Orders free-form version strings such as 2.1.0, 1.0b3 or "3.0 beta". A version that continues
// with a dot or a number is newer than one that ends there; one that continues with letters is a
// pre-release, and older. Each UTF-16 unit counts as one character. Any thread; does not block.

// The classes of characters, of which a run is made.
enum class CharacterType { digit = 0, other = 1, dot = 2 };

// Returns the class of a string's first character; a dot counts as one only if it is alone. Throws
// RangeException for an empty string.
[[nodiscard]] QBDKR_EXPORT CharacterType typeOfCharacter(std::u16string_view string);

// Splits a version into runs of digits, single dots and runs of other characters.
[[nodiscard]] QBDKR_EXPORT std::vector<std::u16string> splitVersionString(Text version);

// Returns -1, 0 or 1 if the first version is older than the second, equal or newer. Numbers count
// up to 2^31-1; an absent version is empty.
[[nodiscard]] QBDKR_EXPORT int compareVersion(Text version, Text toVersion);

}  // namespace qbdkr
