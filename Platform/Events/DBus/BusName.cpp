#include "Platform/Events/DBus/BusName.h"

#include "Platform/Text/Text.h"

namespace qbdkr {
namespace {

constexpr std::size_t longestName = 255;
constexpr std::string_view hexDigits = "0123456789abcdef";

bool isAllowed(char byte) {
  return isDigit(byte) || (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
         byte == '_' || byte == '-';
}

}  // namespace

std::optional<std::string> busNameOfIdentifier(std::string_view identifier) {
  if (identifier.size() > longestName) return std::nullopt;
  std::string name;
  name.reserve(identifier.size());
  bool severalElements = false;
  bool atElementStart = true;
  for (const char byte : identifier) {
    if (byte == '.') {
      if (atElementStart) return std::nullopt;
      name += '.';
      severalElements = true;
      atElementStart = true;
      continue;
    }
    if (isAllowed(byte) && !(atElementStart && isDigit(byte))) {
      name += byte;
    } else {
      const auto value = static_cast<unsigned char>(byte);
      name += '_';
      name += hexDigits[value >> 4U];
      name += hexDigits[value & 0xFU];
    }
    atElementStart = false;
  }
  if (!severalElements || atElementStart || name.size() > longestName) return std::nullopt;
  return name;
}

}  // namespace qbdkr
