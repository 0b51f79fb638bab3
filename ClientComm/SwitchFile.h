#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <ClientComm/Export.h>
#include <ClientComm/PropertyList.h>

namespace qbdkr {

// The files with the switches belong to the bundle: they are rewritten in place, never created, and
// stay as they are if they cannot be read or written.

// Returns the path of the first property list in a bundle's "Contents" folder, in the order of the
// file system; absent if not found. Blocks for the directory. Any thread.
[[nodiscard]] QBDKR_EXPORT std::optional<std::string> firstPropertyList(
    const std::string& bundlePath);

enum class SwitchForm { propertyList, strings };

// The condition for a write: always, or only if the file has another value.
enum class SwitchWrite { always, whenChanged };

// Sets one switch in a file, and keeps its other entries: a flag in a property list, "1" or "0" in
// a strings file (UTF-16 with a byte-order mark). True if the file has the value afterwards. Waits
// 0.1 s at most for another writer; if that takes longer, the file is unchanged. Blocks for the
// file system. Any thread.
QBDKR_EXPORT bool writeSwitch(const std::string& path, SwitchForm form, std::string_view key,
                              bool value, SwitchWrite when);

}  // namespace qbdkr
