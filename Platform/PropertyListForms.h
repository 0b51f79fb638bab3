#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/PropertyList.h"

// What the readers and writers of the single forms share. Not part of the interface.
namespace qbdkr::propertylist {

// The bounds of every reader. The writers keep them as well: what is written can be read.
inline constexpr std::size_t maximumBytes = std::size_t{16} << 20;
inline constexpr std::size_t maximumLevels = 256;
inline constexpr std::size_t maximumValues = 1'000'000;
// A binary list may name one text many times over, so the sum of all texts has its own bound.
inline constexpr std::size_t maximumContent = 4 * maximumBytes;

// What a reader takes. Without other words, what a file of one's own may hold.
struct Bounds {
  std::size_t bytes = maximumBytes;
  std::size_t levels = maximumLevels;
  std::size_t values = maximumValues;
  std::size_t content = maximumContent;
};

// The bounds of a list that any program may have written and every host may have to read. An
// application says little of itself: ten thousand values would be a thousand types of documents.
// To read one takes about 3 MB of memory.
inline constexpr Bounds foreignBounds{std::size_t{1} << 20, 32, 10'000, std::size_t{1} << 20};

// Gives out a limited amount, and nothing more once it was asked for too much.
class Allowance {
 public:
  constexpr explicit Allowance(std::size_t amount) : left_(amount) {}
  [[nodiscard]] constexpr bool take(std::uint64_t amount = 1) {
    if (amount > left_) {
      left_ = 0;
      return false;
    }
    left_ -= static_cast<std::size_t>(amount);
    return true;
  }

 private:
  std::size_t left_;
};

// The readers of one form each. The text forms want valid UTF-8 without a byte-order mark; XML
// comes bounded (XMLBounds.h) and without its declaration.
[[nodiscard]] std::optional<PropertyList> readXML(std::string_view utf8, const Bounds& bounds);
[[nodiscard]] std::optional<PropertyList> readBinary(std::string_view bytes, const Bounds& bounds);
[[nodiscard]] std::optional<PropertyList> readText(std::string_view utf8, const Bounds& bounds);

// The XML form of a value that was found fit for it; absent when it gets longer than it may.
[[nodiscard]] std::optional<std::string> writeXML(const PropertyList& list);

// Scalars as text. Never those of the locale: a file means the same everywhere.
[[nodiscard]] std::optional<PropertyList::Integer> integerFromText(std::string_view text);
[[nodiscard]] std::optional<PropertyList::Date> dateFromText(std::string_view text);

// Absent for a magnitude that no property list can hold.
[[nodiscard]] std::optional<std::string> textFromInteger(PropertyList::Integer integer);
// As few digits as read as the same number.
[[nodiscard]] std::string textFromReal(double real);
// The platform's part of that, since not every library of C++ has it: "D.DDe+XX" for a finite one.
[[nodiscard]] std::string scientificText(double real);
// Whole seconds, as the form has no fractions. Absent outside the years 0 to 9999.
[[nodiscard]] std::optional<std::string> textFromDate(PropertyList::Date date);

// The value of a hexadecimal digit; -1 for every other character.
[[nodiscard]] constexpr int hexDigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace qbdkr::propertylist
