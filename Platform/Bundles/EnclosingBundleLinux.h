#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/PropertyLists/PropertyList.h"

namespace qbdkr {

// Where a bundle has its information.
inline constexpr std::string_view informationFile = "Contents/Info.plist";

// The directory that a file lies in.
[[nodiscard]] std::string directoryOf(const std::string& file);

// The information dictionary of the bundle that an executable belongs to, without localization, and
// the path of that bundle. Absent for an executable outside any bundle. An executable whose file
// was replaced since it started still belongs to its bundle.
struct EnclosingBundle {
  std::string path;
  std::shared_ptr<const PropertyList::Dictionary> info;
};
[[nodiscard]] std::optional<EnclosingBundle> bundleOfExecutable(std::string_view executable);

// The same within the bounds of one's own files, and read anew.
[[nodiscard]] std::optional<EnclosingBundle> ownBundleOfExecutable(std::string_view executable);

// Where an executable lies, as a process that still runs it shows it, or lay before its file was
// replaced.
[[nodiscard]] std::string placeOfExecutable(std::string_view executable);

}  // namespace qbdkr
