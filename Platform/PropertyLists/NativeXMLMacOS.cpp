#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/PropertyLists/NativeXML.h"
#include "Platform/PropertyLists/PropertyListBounds.h"
#include "Platform/PropertyLists/PropertyListConversionMacOS.h"

namespace qbdkr::propertylist {

namespace {

// Escapes carriage returns, which an XML reader would take for line feeds. All of them belong to
// texts: the writer ends its own lines with line feeds.
std::string withEscapedReturns(std::string_view xml) {
  std::string text;
  text.reserve(xml.size());
  for (const char c : xml) {
    if (c == '\r') {
      text += "&#13;";
    } else {
      text += c;
    }
  }
  return text;
}

}  // namespace

std::optional<PropertyList> readXML(std::string_view utf8, const Bounds& bounds) {
  const CFRef<CFDataRef> data(CFDataCreate(kCFAllocatorDefault,
                                           reinterpret_cast<const UInt8*>(utf8.data()),
                                           static_cast<CFIndex>(utf8.size())));
  if (!data) return std::nullopt;
  CFPropertyListFormat form{};
  const CFRef<CFPropertyListRef> list(CFPropertyListCreateWithData(
      kCFAllocatorDefault, data.get(), kCFPropertyListImmutable, &form, nullptr));
  if (!list || form != kCFPropertyListXMLFormat_v1_0) return std::nullopt;
  return propertyListFrom(list.get(), bounds);
}

std::string faultOfXML(std::string_view /*utf8*/, const Bounds& /*bounds*/) { return ""; }

std::optional<std::string> writeXML(const PropertyList& list) {
  const CFRef<CFPropertyListRef> value = propertyListFor(list);
  if (!value) return std::nullopt;
  const CFRef<CFDataRef> data(CFPropertyListCreateData(kCFAllocatorDefault, value.get(),
                                                       kCFPropertyListXMLFormat_v1_0, 0, nullptr));
  if (!data) return std::nullopt;
  return withEscapedReturns({reinterpret_cast<const char*>(CFDataGetBytePtr(data.get())),
                             static_cast<std::size_t>(CFDataGetLength(data.get()))});
}

}  // namespace qbdkr::propertylist
