#pragma once

#include <string>

namespace qbdkr {

// One result of the examination of a host. Its texts hold no control characters, and are UTF-8.
struct Finding {
  // With an error the helper agent is not installed, not launched or not reached. A warning has
  // an effect that is likely not meant. A note tells a state, as that nothing runs.
  enum class Severity { ok, note, warning, error };

  Severity severity = Severity::ok;  // of this result
  std::string subject;               // a stable name for programs, as "helper-identity"
  std::string text;                  // one sentence, with the key, path or process
  std::string remedy;                // one sentence; empty if none is needed
};

}  // namespace qbdkr
