#pragma once

#include <optional>

#include <QBDKRProductClient/Diagnosis.h>

namespace qbdkr {

// Tells whether the main run loop takes its turns.
enum class MainLoop { runs, standsStill, unknown };

// Finds the cause in what a diagnosis holds: the first error of the examination, else the trouble
// that keeps the helper agent from running or from being reached, else the request or the report
// that failed last. Absent if nothing is wrong. Throws only std::bad_alloc.
[[nodiscard]] std::optional<Diagnosis::Cause> findCause(const Diagnosis& diagnosis,
                                                        MainLoop mainLoop);

}  // namespace qbdkr
