#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/PropertyList.h"
#include "Platform/PropertyListForms.h"

// The steps of readDictionaryFile(), for readers with bounds of their own or a memory of what they
// read. Not part of the interface.
namespace qbdkr::propertylist {

// The bytes of a file; absent when it cannot be read or has too many.
struct FileContents {
  std::optional<std::string> bytes;
  // Whether the same file would give the same again. False after a failure for want of a
  // descriptor, or of the device.
  bool isConclusive = true;
};

// Reads a regular file of at most that many bytes. Blocks for the file, never for a pipe's writer.
[[nodiscard]] QBDKR_EXPORT FileContents contentsOfFile(const std::string& path,
                                                       std::size_t maximum);

// The dictionary that the bytes of a file hold in any form; absent when they hold none within the
// bounds, and when there are none.
[[nodiscard]] QBDKR_EXPORT std::optional<PropertyList::Dictionary> parseDictionary(
    std::string_view bytes, const Bounds& bounds);

}  // namespace qbdkr::propertylist
