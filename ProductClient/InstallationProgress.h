#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "Platform/Files/CopyProgress.h"
#include "ProductClient/HelperStates.h"

namespace qbdkr {

// Tells the progress of one installation, from the construction to the destruction, on one thread.
// Every call but the constructor may walk through the resource for its size, until that is known.
class InstallationProgress {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::milliseconds interval{50};

  // Begins an installation from that resource.
  InstallationProgress(HelperStates& states, std::string resource,
                       std::function<Clock::time_point()> now = Clock::now);
  InstallationProgress(const InstallationProgress&) = delete;
  InstallationProgress& operator=(const InstallationProgress&) = delete;
  ~InstallationProgress();

  // Counts what was copied, and tells it if the last report is long enough ago.
  void add(std::uint64_t bytes) noexcept;
  // Returns add() as a function. This object must outlive it.
  [[nodiscard]] CopyProgress counter();
  // Tells the end of the copying.
  void complete() noexcept;

 private:
  void tell() noexcept;

  HelperStates& states_;
  const std::string resource_;
  const std::function<Clock::time_point()> now_;
  std::uint64_t done_ = 0;
  std::uint64_t total_ = 0;  // 0 before it is known
  Clock::time_point told_{};
};

}  // namespace qbdkr
