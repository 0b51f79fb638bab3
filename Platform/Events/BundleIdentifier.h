#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Processes/NativeProcesses.h"

namespace qbdkr {

inline constexpr std::size_t longestBundleIdentifier = 255;  // bytes, as for a name on the bus

// Tells whether a text can identify the application of a sender: UTF-8 without a NUL, at most that
// long, without an empty element between its dots. A process that claims any other identifier does
// not count as an application: remembering it could take any amount of memory.
[[nodiscard]] bool isBundleIdentifier(std::string_view text);

// Returns the identifier of the application that a process runs now; absent if it runs no
// application or one with an invalid identifier. Any thread; reads the application's Info.plist.
[[nodiscard]] std::optional<std::string> bundleIdentifierOf(const ProcessSerialNumber& number);

}  // namespace qbdkr
