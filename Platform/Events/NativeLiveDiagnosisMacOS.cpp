#include "Platform/Events/NativeLiveDiagnosis.h"

namespace qbdkr {

LiveDiagnosis nativeDiagnosisOf(const std::string& /*identifier*/, std::optional<pid_t> process,
                                std::chrono::seconds /*patience*/) {
  return {process, {}, "this system does not offer the diagnosis of another process"};
}

}  // namespace qbdkr
