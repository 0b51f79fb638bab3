#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Base/Export.h"
#include "Platform/PropertyLists/PropertyList.h"

namespace qbdkr {

inline constexpr std::string_view kCFBundleIdentifierKey = "CFBundleIdentifier";
inline constexpr std::string_view kCFBundleNameKey = "CFBundleName";
inline constexpr std::string_view kCFBundleVersionKey = "CFBundleVersion";
inline constexpr std::string_view kCFBundleExecutableKey = "CFBundleExecutable";

// An application bundle: a directory with its information property list and resources. The
// information dictionary is read once, when the object is made; nothing on disk changes it later.
// A plain value that shares what it read; usable from any thread.
class QBDKR_EXPORT Bundle {
 public:
  // The bundle around the running executable, read on the first call and kept for the life of the
  // process. A process outside any bundle has a main bundle without an information dictionary, at
  // the directory of its executable.
  static const Bundle& main();

  // The bundle at a path; absent when there is no directory. A directory without an information
  // property list gives a bundle with an empty dictionary.
  [[nodiscard]] static std::optional<Bundle> withPath(const std::string& path);

  [[nodiscard]] const std::string& bundlePath() const;

  // A value of the information dictionary, the preferred localization's first. Null when absent;
  // the pointer lives as long as the bundle.
  [[nodiscard]] const PropertyList* objectForInfoDictionaryKey(std::string_view key) const;

  // The same where a text is wanted: a number reads as its digits. Absent when missing, or a date,
  // data or a container.
  [[nodiscard]] std::optional<std::string> infoString(std::string_view key) const;

  // The executable that CFBundleExecutable names; absent when it names none inside the bundle.
  [[nodiscard]] std::optional<std::string> executablePath() const;

  // The path of a resource NAME.TYPE: among the resources themselves, then in the folder of the
  // preferred localization. Absent when there is none.
  [[nodiscard]] std::optional<std::string> pathForResource(std::string_view name,
                                                           std::string_view type) const;

  // The languages for which the bundle has a folder, in the order of the file system, and the best
  // one of them for this user first.
  [[nodiscard]] std::vector<std::string> localizations() const;
  [[nodiscard]] std::vector<std::string> preferredLocalizations() const;

 private:
  struct State;
  explicit Bundle(std::shared_ptr<const State> state) : state_(std::move(state)) {}
  std::shared_ptr<const State> state_;
};

}  // namespace qbdkr
