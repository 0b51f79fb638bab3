#pragma once

#include <algorithm>
#include <chrono>
#include <optional>

#include <ClientComm/Cancellation.h>

namespace qbdkr {

// Limits a request that has an answer. Without limits it ends when the helper agent answers or goes
// away, or the bus does.
struct RequestLimits {
  // The clock of deadlines, which does not stand still or jump.
  using Clock = std::chrono::steady_clock;

  // The time at which the request ends with errAETimeout. One that has passed already sends
  // nothing.
  Clock::time_point deadline = Clock::time_point::max();

  // Ends the request with userCanceledErr. Absent: it cannot be cancelled.
  std::optional<Cancellation> cancellation = std::nullopt;

  // Returns limits with a deadline so long from now.
  [[nodiscard]] static RequestLimits within(std::chrono::milliseconds time) {
    const auto now = Clock::now();
    const auto most = std::chrono::floor<std::chrono::milliseconds>(Clock::time_point::max() - now);
    return {now + std::min(time, most), std::nullopt};
  }
};

}  // namespace qbdkr
