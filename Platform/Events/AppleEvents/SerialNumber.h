#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Platform/Processes/NativeProcesses.h"

namespace qbdkr {

// Returns a serial number as the bytes of a 'psn ' descriptor: two words, each in big-endian order.
[[nodiscard]] std::string bytesOfSerialNumber(const ProcessSerialNumber& number);
// Reads such bytes; absent if there are not 8 of them.
[[nodiscard]] std::optional<ProcessSerialNumber> serialNumberFromBytes(std::string_view bytes);

}  // namespace qbdkr
