#include "Platform/Events/LiveDiagnosis.h"

#include <cstdint>

#include "Platform/Events/BundleIdentifier.h"
#include "Platform/Events/NativeLiveDiagnosis.h"

namespace qbdkr {

LiveDiagnosis diagnosisOfProcess(pid_t process, std::chrono::seconds patience) {
  const auto identifier =
      process > 0 ? bundleIdentifierOf({0, static_cast<std::uint32_t>(process)}) : std::nullopt;
  if (!identifier) {
    return {{}, {}, "process " + std::to_string(process) + " runs no application, or has ended"};
  }
  return nativeDiagnosisOf(*identifier, process, patience);
}

LiveDiagnosis diagnosisOfApplication(const std::string& identifier, std::chrono::seconds patience) {
  return nativeDiagnosisOf(identifier, std::nullopt, patience);
}

}  // namespace qbdkr
