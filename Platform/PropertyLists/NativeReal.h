#pragma once

#include <optional>
#include <string>

namespace qbdkr::propertylist {

// The system's part of textFromReal() and realFromText(), since not every C++ library has it. Both
// ignore the locale.

// Returns "D.DDe+XX" for a finite number, with the fewest digits that read as the same number.
[[nodiscard]] std::string scientificText(double real);

// Reads decimal digits, a point and an exponent, without a sign. The text holds nothing but digits,
// points, signs and the letters "e" and "E". Absent if it is not one number as a whole, or out of
// range.
[[nodiscard]] std::optional<double> realFromDecimal(const std::string& text);

}  // namespace qbdkr::propertylist
