#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Platform/Processes/NativeProcesses.h"

namespace qbdkr {

// A serial number as the bytes of a 'psn ' descriptor: the two words, each in big-endian order.
[[nodiscard]] std::string bytesOfSerialNumber(const ProcessSerialNumber& number);
// Absent for any other number of bytes.
[[nodiscard]] std::optional<ProcessSerialNumber> serialNumberFromBytes(std::string_view bytes);

}  // namespace qbdkr
