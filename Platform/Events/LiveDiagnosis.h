#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

namespace qbdkr {

// The answer of a process that was asked for its diagnosis.
struct LiveDiagnosis {
  std::optional<pid_t> process;     // absent if it was not found
  std::optional<std::string> text;  // absent if there was no answer; 1 MiB at most
  std::string obstacle;             // why, as a sentence without a full stop
  bool isStuck = false;             // its main run loop has not answered for 0.8 s
};

// Ask a process, or the application of a bundle identifier, for its diagnosis. They wait for the
// answer this long at most; with a patience of 0 they find out whether it is stuck, and ask for
// nothing. Any thread.
[[nodiscard]] LiveDiagnosis diagnosisOfProcess(pid_t process, std::chrono::seconds patience);
[[nodiscard]] LiveDiagnosis diagnosisOfApplication(const std::string& identifier,
                                                   std::chrono::seconds patience);

}  // namespace qbdkr
