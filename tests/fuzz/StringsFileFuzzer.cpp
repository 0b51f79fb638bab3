// Writes a dictionary as a strings file. Texts must read back the same from UTF-8 and UTF-16; other
// values must at least be readable.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include <ClientComm/PropertyList.h>

#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/PropertyLists/TextPropertyList.h"
#include "Platform/Text/Text.h"

namespace {

using qbdkr::PropertyList;

bool hasOnlyTexts(const PropertyList::Dictionary& dictionary) {
  return std::all_of(dictionary.begin(), dictionary.end(),
                     [](const auto& entry) { return entry.second.string() != nullptr; });
}

std::string littleEndianUTF16(std::string_view utf8) {
  std::string bytes = "\xFF\xFE";
  for (const char16_t unit : qbdkr::utf16FromUTF8(utf8)) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8);
  }
  return bytes;
}

void require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const std::optional<PropertyList> list = qbdkr::parsePropertyList(bytes);
  if (!list || !list->dictionary()) return 0;
  const PropertyList::Dictionary& dictionary = *list->dictionary();
  const std::optional<std::string> text = qbdkr::stringsFileText(dictionary);
  if (!text) return 0;

  const std::optional<PropertyList> fromUTF8 = qbdkr::parsePropertyList(*text);
  const std::optional<PropertyList> fromUTF16 = qbdkr::parsePropertyList(littleEndianUTF16(*text));
  require(fromUTF8.has_value() && fromUTF8->dictionary());
  require(fromUTF8 == fromUTF16);
  if (hasOnlyTexts(dictionary)) require(*fromUTF8 == *list);
  return 0;
}
