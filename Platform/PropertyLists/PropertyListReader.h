#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <ClientComm/Export.h>
#include <ClientComm/PropertyList.h>

#include "Platform/PropertyLists/PropertyListBounds.h"

namespace qbdkr {

// Reads a property list of any form: XML, binary, or old-style text, strings files included (their
// pairs are a dictionary). Text may be UTF-8 or UTF-16 of either byte order, with or without a
// byte-order mark; UTF-16 without one begins with an ASCII character, and bytes that begin with
// "bplist" are binary. Absent if the bytes have another form or exceed a bound: 16 MiB of bytes,
// 256 levels, a million values; for a binary list also two values per byte, and 64 MiB for all
// texts and data. XML that could mislead a reader is refused: declarations in the document type,
// attributes with a ">" in them, tags beyond 4 KiB. Throws only std::bad_alloc. Any thread.
[[nodiscard]] QBDKR_EXPORT std::optional<PropertyList> parsePropertyList(std::string_view bytes);

// Reads a file that holds a dictionary in any of these forms. Absent if the file cannot be read, is
// empty, or holds no dictionary within these bounds. Blocks for the file. Any thread.
[[nodiscard]] QBDKR_EXPORT std::optional<PropertyList::Dictionary> readDictionaryFile(
    const std::string& path);

// Returns why readDictionaryFile() reads no dictionary from a file, for a message, as "line 7:
// mismatched tag"; absent if it reads one. Blocks for the file. Any thread.
[[nodiscard]] QBDKR_EXPORT std::optional<std::string> faultOfDictionaryFile(
    const std::string& path);

// The steps of readDictionaryFile(), for readers with bounds or a cache of their own.
namespace propertylist {

// The bytes of a file; absent if it cannot be read, is not a regular file, or has too many.
struct FileContents {
  std::optional<std::string> bytes;
  // True if reading the unchanged file again would give the same result. False if the failure was
  // one of the process or the device, such as a lack of descriptors.
  bool isConclusive = true;
};

// Reads a regular file of at most that many bytes. Blocks for the file, never for a pipe's writer.
[[nodiscard]] QBDKR_EXPORT FileContents contentsOfFile(const std::string& path,
                                                       std::size_t maximum);

// Returns the text of a property list that is not binary, as UTF-8 without a mark. Absent if the
// bytes are neither UTF-8 nor UTF-16.
[[nodiscard]] QBDKR_EXPORT std::optional<std::string> textOf(std::string_view bytes);

// Parses the dictionary that a file holds in any form. Absent if the bytes are empty, or hold no
// dictionary within the bounds.
[[nodiscard]] QBDKR_EXPORT std::optional<PropertyList::Dictionary> parseDictionary(
    std::string_view bytes, const Bounds& bounds);

}  // namespace propertylist
}  // namespace qbdkr
