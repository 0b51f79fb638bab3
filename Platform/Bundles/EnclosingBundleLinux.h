#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include <ClientComm/PropertyList.h>

namespace qbdkr {

// The path of the information in a bundle, and of the folder of its programs.
inline constexpr std::string_view informationFile = "Contents/Info.plist";
inline constexpr std::string_view programFolder = "Contents/Linux";

// Returns the directory of a file: "" for a file in the root, "/" for a path without a slash.
[[nodiscard]] std::string_view directoryOf(std::string_view file);

// Directories that have no information file, and no bundle above them. Paths are other processes'
// choice: only so many short ones are kept.
using PlacesOutsideBundles = std::set<std::string, std::less<>>;

// The bundle that an executable belongs to: its path, and its information dictionary without
// localization. Absent for an executable outside any bundle. An executable whose file was replaced
// since it started still belongs to its bundle.
struct EnclosingBundle {
  std::string path;
  std::shared_ptr<const PropertyList::Dictionary> info;
};
[[nodiscard]] std::optional<EnclosingBundle> bundleOfExecutable(std::string_view executable);
[[nodiscard]] std::optional<EnclosingBundle> bundleOfExecutable(std::string_view executable,
                                                                PlacesOutsideBundles& outside);

// Does the same within the bounds for a host's own files, and without a cache.
[[nodiscard]] std::optional<EnclosingBundle> ownBundleOfExecutable(std::string_view executable);

// Tells whether a program of a bundle is its application: the one that CFBundleExecutable names,
// and no crash reporter or tool beside it. If that one is a script, its process is the interpreter,
// so any program counts; so it does if the bundle names none.
[[nodiscard]] bool isApplication(const EnclosingBundle& bundle, std::string_view executable);

// Returns the path of an executable, for the path that the system shows for a process that still
// runs it. If its file was replaced since, returns the path before that.
[[nodiscard]] std::string placeOfExecutable(std::string_view executable);

}  // namespace qbdkr
