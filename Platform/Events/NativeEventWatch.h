#pragma once

#include <optional>
#include <string>

#include "Platform/Events/EventWatch.h"

namespace qbdkr {

// The system's part of watchEvents().
[[nodiscard]] std::optional<std::string> watchNativeEvents(const EventWatch& watch);

}  // namespace qbdkr
