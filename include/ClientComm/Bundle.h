#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <ClientComm/Export.h>
#include <ClientComm/PropertyList.h>

namespace qbdkr {

// Keys of an information dictionary that the framework reads.
inline constexpr std::string_view kCFBundleIdentifierKey = "CFBundleIdentifier";
inline constexpr std::string_view kCFBundleNameKey = "CFBundleName";
inline constexpr std::string_view kCFBundleVersionKey = "CFBundleVersion";
inline constexpr std::string_view kCFBundleExecutableKey = "CFBundleExecutable";

// An application bundle: a directory with its information property list and resources. The
// information dictionary is read once, when the object is made; later changes on disk have no
// effect on it. A plain value that shares what it read. Any thread. Calls that look for files block
// for the disk.
class QBDKR_EXPORT Bundle {
 public:
  // Returns the bundle around the running executable. The first call reads it, and restores files
  // in it whose rewriting was cut off; it is kept for the life of the process. A process outside
  // any bundle has a main bundle without an information dictionary, at the directory of its
  // executable.
  static const Bundle& main();

  // Reads the bundle at a path; absent if that is not a directory. A directory without an
  // information property list gives a bundle with an empty dictionary.
  [[nodiscard]] static std::optional<Bundle> withPath(const std::string& path);

  // Returns the path of the bundle's directory.
  [[nodiscard]] const std::string& bundlePath() const;

  // Returns a value of the information dictionary; texts of the preferred localization replace
  // those of the bundle. Null if the key is missing. The pointer lives as long as the bundle.
  [[nodiscard]] const PropertyList* objectForInfoDictionaryKey(std::string_view key) const;

  // Returns such a value as text: a number reads as its digits. Absent if the key is missing, or
  // the value is a date, data or a container.
  [[nodiscard]] std::optional<std::string> infoString(std::string_view key) const;

  // Returns the path of the executable that CFBundleExecutable names; absent if the bundle does not
  // contain it.
  [[nodiscard]] std::optional<std::string> executablePath() const;

  // Returns the path of a resource NAME.TYPE, or NAME if the type is empty: first among the
  // resources themselves, then in the folders of the preferred localizations. Absent if not found.
  [[nodiscard]] std::optional<std::string> pathForResource(std::string_view name,
                                                           std::string_view type) const;

  // Return the languages for which the bundle has a folder: all of them, in the order of the file
  // system, and those that serve this user, best first.
  [[nodiscard]] std::vector<std::string> localizations() const;
  [[nodiscard]] std::vector<std::string> preferredLocalizations() const;

 private:
  struct State;
  explicit Bundle(std::shared_ptr<const State> state) : state_(std::move(state)) {}
  std::shared_ptr<const State> state_;
};

}  // namespace qbdkr
