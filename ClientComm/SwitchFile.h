#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <ClientComm/Export.h>
#include <ClientComm/PropertyList.h>

namespace qbdkr {

// The files of a bundle that carry its switches. They belong to the bundle: they are rewritten in
// place, never made, and left alone when they cannot be read or written.

// The first property list in the "Contents" folder of a bundle, in the order of the file system.
[[nodiscard]] QBDKR_EXPORT std::optional<std::string> firstPropertyList(
    const std::string& bundlePath);

enum class SwitchForm { propertyList, strings };

// When a switch is written: always, or only when the file says something else by now.
enum class SwitchWrite { always, whenChanged };

// Sets one switch in a file and keeps everything else that it says: a flag in a property list, "1"
// or "0" in a strings file (UTF-16 with a byte-order mark). True when the file says it afterwards.
// Waits 0.1 s at most for another writer; the file is left as it is if that takes longer. Blocks
// for the file system. Any thread.
QBDKR_EXPORT bool writeSwitch(const std::string& path, SwitchForm form, std::string_view key,
                              bool value, SwitchWrite when);

}  // namespace qbdkr
