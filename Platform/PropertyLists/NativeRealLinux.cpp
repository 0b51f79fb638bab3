#include <array>
#include <charconv>
#include <system_error>

#include "Platform/PropertyLists/NativeReal.h"

namespace qbdkr::propertylist {

std::string scientificText(double real) {
  std::array<char, 32> buffer{};
  const auto [end, error] = std::to_chars(buffer.data(), buffer.data() + buffer.size(), real,
                                          std::chars_format::scientific);
  return {buffer.data(), end};
}

std::optional<double> realFromDecimal(const std::string& text) {
  double value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

}  // namespace qbdkr::propertylist
