#include "Platform/Linux/ExecutablePlace.h"

#include <filesystem>

#include "Platform/Linux/EnclosingBundle.h"

namespace qbdkr {

bool runsFrom(pid_t processID, const std::string& directory) {
  const auto executable = executableOfProcess(processID);
  if (!executable || directory.empty()) return false;
  // The system shows executables without links in their path. The directory itself may be gone.
  std::error_code error;
  const auto place = std::filesystem::weakly_canonical(directory, error);
  return !error && placeOfExecutable(*executable).starts_with(place.string() + '/');
}

}  // namespace qbdkr
