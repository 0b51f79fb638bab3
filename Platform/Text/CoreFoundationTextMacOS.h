#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base/CoreFoundationRefMacOS.h"

namespace qbdkr {

// Convert between UTF-8 and the system's strings. Every conversion goes through counted UTF-16
// units: a NUL is an ordinary character, and nothing is taken for a byte-order mark.

// Null if the bytes are not UTF-8.
[[nodiscard]] CFRef<CFStringRef> stringFromText(std::string_view utf8);
[[nodiscard]] CFRef<CFStringRef> stringFromUnits(std::u16string_view units);

// Half a surrogate pair becomes U+FFFD in text, and stays as it is in units.
[[nodiscard]] std::string textFromString(CFStringRef string);
[[nodiscard]] std::u16string unitsFromString(CFStringRef string);

// Convert the path of a directory to a file URL, and back. Null if the path is empty or holds a
// NUL; absent if the URL is null or has no path in the file system.
[[nodiscard]] CFRef<CFURLRef> directoryURL(std::string_view path);
[[nodiscard]] std::optional<std::string> pathFromURL(CFURLRef url);

}  // namespace qbdkr
