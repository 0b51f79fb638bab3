// A property list of one integer, which is all that the sources ask for.

#include <string>
#include <string_view>

#include "Platform/PropertyLists/PropertyListScalars.h"
#include "macos/doubles/CFValues.h"

using namespace qbdkr::propertylist;
using namespace doubles;

namespace {

constexpr std::string_view begin = "<integer>";
constexpr std::string_view end = "</integer>";

}  // namespace

CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef, CFDataRef data, CFOptionFlags,
                                               CFPropertyListFormat*, CFErrorRef*) {
  const std::string_view xml = objectOf<CFData>(data).bytes;
  const auto first = xml.find(begin);
  const auto last = xml.find(end);
  if (first == std::string_view::npos || last == std::string_view::npos) return nullptr;
  const auto digits = xml.substr(0, last).substr(first + begin.size());
  const auto integer = integerFromText(digits);
  return integer ? refTo<CFPropertyListRef>(new CFNumber(*integer)) : nullptr;
}

CFDataRef CFPropertyListCreateData(CFAllocatorRef, CFPropertyListRef propertyList,
                                   CFPropertyListFormat, CFOptionFlags, CFErrorRef*) {
  const auto digits = textFromInteger(objectOf<CFNumber>(propertyList).integer);
  if (!digits) return nullptr;
  std::string xml = "<plist version=\"1.0\">\n";
  xml.append(begin).append(*digits).append(end).append("\n</plist>\n");
  return refTo<CFDataRef>(new CFData(xml));
}
