#include "Platform/Processes/ExecutablePlaceLinux.h"

#include <unistd.h>

#include <array>
#include <climits>
#include <cstddef>
#include <filesystem>

#include "Platform/Bundles/EnclosingBundleLinux.h"

namespace qbdkr {

std::string linkOfExecutable(pid_t processID) {
  return "/proc/" + std::to_string(processID) + "/exe";
}

std::optional<std::string> executableOfProcess(pid_t processID) {
  const std::string path = linkOfExecutable(processID);
  std::array<char, PATH_MAX> target;  // NOLINT(cppcoreguidelines-pro-type-member-init): not read
  const auto size = ::readlink(path.c_str(), target.data(), target.size());
  if (size <= 0) return std::nullopt;
  return std::string(target.data(), static_cast<std::size_t>(size));
}

bool runsFrom(pid_t processID, const std::string& directory) {
  const auto executable = executableOfProcess(processID);
  if (!executable || directory.empty()) return false;
  // The system shows executables without links in their path. The directory itself may be gone.
  std::error_code error;
  const auto place = std::filesystem::weakly_canonical(directory, error);
  return !error && placeOfExecutable(*executable).starts_with(place.string() + '/');
}

}  // namespace qbdkr
