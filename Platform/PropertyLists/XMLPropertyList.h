#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <ClientComm/PropertyList.h>

#include "Platform/PropertyLists/PropertyListBounds.h"

namespace qbdkr::propertylist {

// The text before and behind the value, as writeXML() writes it.
inline constexpr std::string_view xmlBegin =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
inline constexpr std::string_view xmlEnd = "</plist>\n";

// XML holds every valid UTF-8 but control characters and noncharacters.
[[nodiscard]] constexpr bool isXMLByte(char c) {
  return static_cast<unsigned char>(c) >= 0x20 || c == '\t' || c == '\n' || c == '\r';
}
[[nodiscard]] bool hasNoncharacter(std::string_view utf8);

// Reads the XML form: valid UTF-8 without a byte-order mark or an XML declaration, which passed
// isBoundedXML(). Absent if it is not a property list or exceeds a bound.
[[nodiscard]] std::optional<PropertyList> readXML(std::string_view utf8, const Bounds& bounds);

// Returns the first fault of valid UTF-8 that readXML() does not read, as "line 7: mismatched tag".
// An XML declaration may precede the text.
[[nodiscard]] std::string faultOfXML(std::string_view utf8, const Bounds& bounds);

// Returns the XML form of a value that was found fit for it; absent if it gets too long.
[[nodiscard]] std::optional<std::string> writeXML(const PropertyList& list);

}  // namespace qbdkr::propertylist
