#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base/CoreFoundationRefMacOS.h"

namespace qbdkr {

// Text in UTF-8 as the system's own, and back. All conversions go by way of counted UTF-16 units: a
// NUL is a character like any other, and nothing is taken for a byte-order mark.

// Null for bytes that are not UTF-8.
[[nodiscard]] CFRef<CFStringRef> stringFromText(std::string_view utf8);
[[nodiscard]] CFRef<CFStringRef> stringFromUnits(std::u16string_view units);

// Half a pair becomes U+FFFD.
[[nodiscard]] std::string textFromString(CFStringRef string);
[[nodiscard]] std::u16string unitsFromString(CFStringRef string);

// A file URL for a path of bytes, and back. Null, or absent, for a path that holds a NUL or cannot
// be had.
[[nodiscard]] CFRef<CFURLRef> directoryURL(std::string_view path);
[[nodiscard]] std::optional<std::string> pathFromURL(CFURLRef url);

}  // namespace qbdkr
