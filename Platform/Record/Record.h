#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include <ClientComm/Export.h>
#include <ClientComm/RecordedStep.h>

namespace qbdkr {

// Adds a step to the record of this process, or counts it once more if the record holds it. The
// record has 256 places, 64 KiB in all; a new step takes that of the oldest. Any thread. Allocates
// nothing, and waits for nothing but the short work of another thread.
QBDKR_EXPORT void record(StepKind kind, std::int64_t number, std::string_view subject,
                         std::string_view detail = {}) noexcept;
inline void record(StepKind kind, std::string_view subject, std::string_view detail = {}) noexcept {
  record(kind, 0, subject, detail);
}

// Returns a time in UTC, as a record is read elsewhere than where it was made.
[[nodiscard]] QBDKR_EXPORT std::string timeText(std::chrono::system_clock::time_point time);

// Tells whether QBDKR_DEBUG=1 is set in the environment, as it was at the first call.
[[nodiscard]] QBDKR_EXPORT bool isDebugging();

}  // namespace qbdkr
