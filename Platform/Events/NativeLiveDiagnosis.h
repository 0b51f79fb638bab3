#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

#include "Platform/Events/LiveDiagnosis.h"

namespace qbdkr {

// The system's part of the functions in LiveDiagnosis.h. Without a process it asks the one that
// events to the identifier reach.
[[nodiscard]] LiveDiagnosis nativeDiagnosisOf(const std::string& identifier,
                                              std::optional<pid_t> process,
                                              std::chrono::seconds patience);

}  // namespace qbdkr
