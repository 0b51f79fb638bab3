#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <ClientComm/PropertyList.h>

#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/PropertyLists/PropertyListWriter.h"
#include "Platform/Text/Text.h"

// The values and bytes that tests of several forms share.
namespace qbdkr::test {

inline constexpr std::uint64_t twoTo63 = std::uint64_t{1} << 63;

inline PropertyList::Integer integerWith(std::uint64_t magnitude, bool negative = false) {
  PropertyList::Integer integer;
  integer.magnitude = magnitude;
  integer.negative = negative;
  return integer;
}

inline bool isRefused(std::string_view bytes) { return !parsePropertyList(bytes); }

inline std::optional<PropertyList> throughXML(const PropertyList& list) {
  const std::optional<std::string> xml = xmlPropertyList(list);
  return xml ? parsePropertyList(*xml) : std::nullopt;
}

inline PropertyList nestedArrays(int levels) {
  PropertyList list = PropertyList::Array{};
  for (int i = 1; i < levels; ++i) {
    PropertyList::Array outer;
    outer.push_back(std::move(list));
    list = std::move(outer);
  }
  return list;
}

inline std::string bigEndian(std::uint64_t value, std::size_t width) {
  std::string bytes(width, '\0');
  for (std::size_t i = 0; i < width && i < 8; ++i) {
    bytes[width - 1 - i] = static_cast<char>(value >> (8 * i) & 0xFF);
  }
  return bytes;
}

inline std::string utf16(std::string_view utf8, bool isBigEndian, bool hasMark) {
  std::string bytes;
  for (const char16_t unit : utf16FromUTF8((hasMark ? "\uFEFF" : "") + std::string(utf8))) {
    const char low = static_cast<char>(unit & 0xFF);
    const char high = static_cast<char>(unit >> 8);
    bytes += isBigEndian ? high : low;
    bytes += isBigEndian ? low : high;
  }
  return bytes;
}

}  // namespace qbdkr::test
