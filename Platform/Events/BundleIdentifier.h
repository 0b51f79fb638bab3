#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Processes/NativeProcesses.h"

namespace qbdkr {

inline constexpr std::size_t longestBundleIdentifier = 255;  // bytes, as of a name on the bus

// Whether a text can identify an application that sends: UTF-8 without a NUL, not longer than that,
// and no element between its dots is empty. A process that claims another one is no application,
// whatever memory it would cost to remember it.
[[nodiscard]] bool isBundleIdentifier(std::string_view text);

// The identifier of the application that a process runs now; absent if it runs no application or
// one with an invalid identifier. Any thread; reads the application's Info.plist.
[[nodiscard]] std::optional<std::string> bundleIdentifierOf(const ProcessSerialNumber& number);

}  // namespace qbdkr
