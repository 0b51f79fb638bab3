#include "Platform/PropertyLists/NativeRealLinux.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <system_error>

#include "Platform/PropertyLists/NativeReal.h"
#include "Platform/Text/Text.h"

namespace qbdkr::propertylist {

namespace {

bool equalsIgnoringCase(std::string_view text, std::string_view lowercaseText) {
  return std::ranges::equal(text, lowercaseText, [](char a, char b) {
    return (a >= 'A' && a <= 'Z' ? static_cast<char>(a - 'A' + 'a') : a) == b;
  });
}

// Reads a word for a number that digits cannot express.
std::optional<double> realFromWord(std::string_view word) {
  if (equalsIgnoringCase(word, "nan")) return std::numeric_limits<double>::quiet_NaN();
  if (equalsIgnoringCase(word, "inf") || equalsIgnoringCase(word, "infinity")) {
    return std::numeric_limits<double>::infinity();
  }
  return std::nullopt;
}

std::optional<double> realFromDigits(std::string_view text) {
  // The conversion knows words and signs of its own; none of them may follow our sign.
  if (text.empty() || !(isDigit(text.front()) || text.front() == '.')) return std::nullopt;
  double value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

}  // namespace

std::optional<double> realFromText(std::string_view text) {
  const bool negative = takeSign(text);
  std::optional<double> value = realFromWord(text);
  if (!value) value = realFromDigits(text);
  if (value && negative) *value = -*value;
  return value;
}

std::string scientificText(double real) {
  std::array<char, 32> buffer{};
  const auto [end, error] = std::to_chars(buffer.data(), buffer.data() + buffer.size(), real,
                                          std::chars_format::scientific);
  return {buffer.data(), end};
}

}  // namespace qbdkr::propertylist
