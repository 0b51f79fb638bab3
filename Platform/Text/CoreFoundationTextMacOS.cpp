#include "Platform/Text/CoreFoundationTextMacOS.h"

#include <array>
#include <cstddef>

#include "Platform/Text/Text.h"

namespace qbdkr {

CFRef<CFStringRef> stringFromUnits(std::u16string_view units) {
  static_assert(sizeof(UniChar) == sizeof(char16_t));
  return CFRef<CFStringRef>(CFStringCreateWithCharacters(
      kCFAllocatorDefault, reinterpret_cast<const UniChar*>(units.data()),
      static_cast<CFIndex>(units.size())));
}

CFRef<CFStringRef> stringFromText(std::string_view utf8) {
  if (!isValidUTF8(utf8)) return {};
  return stringFromUnits(utf16FromUTF8(utf8));
}

std::u16string unitsFromString(CFStringRef string) {
  const CFIndex length = CFStringGetLength(string);
  std::u16string units(static_cast<std::size_t>(length), u'\0');
  CFStringGetCharacters(string, CFRangeMake(0, length), reinterpret_cast<UniChar*>(units.data()));
  return units;
}

std::string textFromString(CFStringRef string) { return utf8FromUTF16(unitsFromString(string)); }

CFRef<CFURLRef> directoryURL(std::string_view path) {
  if (path.empty() || path.find('\0') != std::string_view::npos) return {};
  return CFRef<CFURLRef>(CFURLCreateFromFileSystemRepresentation(
      kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()),
      static_cast<CFIndex>(path.size()), 1));
}

std::optional<std::string> pathFromURL(CFURLRef url) {
  if (url == nullptr) return std::nullopt;
  std::array<UInt8, 4096> path{};  // more than the system's longest path
  if (CFURLGetFileSystemRepresentation(url, 1, path.data(), static_cast<CFIndex>(path.size())) ==
      0) {
    return std::nullopt;
  }
  return std::string(reinterpret_cast<const char*>(path.data()));
}

}  // namespace qbdkr
