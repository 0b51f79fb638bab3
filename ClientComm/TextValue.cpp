#include <algorithm>
#include <limits>

#include <ClientComm/TextValue.h>

#include "Platform/Text/Text.h"

namespace qbdkr {
namespace {

std::string_view withoutBlanks(std::string_view text) {
  const auto start = text.find_first_not_of(" \t\n\v\f\r");
  return start == std::string_view::npos ? std::string_view() : text.substr(start);
}

// Returns the value of the digits of any script at the beginning of a text, 2^31 at most.
std::int64_t magnitude(std::string_view text) {
  constexpr std::int64_t limit = std::int64_t{1} << 31U;
  text = text.substr(std::min(text.find_first_not_of('0'), text.size()));
  std::int64_t value = 0;
  for (const char16_t unit : utf16FromUTF8(text)) {
    const auto digit = decimalDigitValue(unit);
    if (!digit) break;
    value = std::min(value * 10 + *digit, limit);
  }
  return value;
}

}  // namespace

std::int32_t intValue(std::string_view text) {
  text = withoutBlanks(text);
  const bool negative = takeSign(text);
  const std::int64_t value = negative ? -magnitude(text) : magnitude(text);
  return static_cast<std::int32_t>(
      std::min<std::int64_t>(value, std::numeric_limits<std::int32_t>::max()));
}

bool boolValue(std::string_view text) {
  text = withoutBlanks(text);
  takeSign(text);
  const auto decisive = text.find_first_not_of('0');
  if (decisive == std::string_view::npos) return false;
  const char character = text[decisive];
  return std::string_view("YyTt").find(character) != std::string_view::npos ||
         (character >= '1' && character <= '9');
}

bool boolValue(const PropertyList& value) {
  if (const auto* flag = std::get_if<bool>(&value.value())) return *flag;
  if (const auto* number = std::get_if<double>(&value.value())) return *number != 0;
  if (const auto* number = std::get_if<PropertyList::Integer>(&value.value())) {
    return number->magnitude != 0;
  }
  return value.string() != nullptr && boolValue(std::string_view(*value.string()));
}

}  // namespace qbdkr
