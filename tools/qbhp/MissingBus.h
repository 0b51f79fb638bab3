#pragma once

#include <optional>
#include <string>

namespace qbdkr::tool {

// Says that the bus on which applications are reached cannot be used, which one that is, and the
// remedy: sentences for a failure, without the last full stop. Absent if it answers, or if it was
// not asked because it lies across a network. Waits 0.9 s at most.
[[nodiscard]] std::optional<std::string> missingBus();

}  // namespace qbdkr::tool
