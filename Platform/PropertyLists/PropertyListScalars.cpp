#include "Platform/PropertyLists/PropertyListScalars.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <limits>
#include <system_error>

#include "Platform/PropertyLists/NativeReal.h"
#include "Platform/Text/Text.h"

namespace qbdkr::propertylist {

namespace {

constexpr std::uint64_t largestNegativeMagnitude = std::uint64_t{1} << 63;

std::chrono::sys_seconds referencePoint() {
  using namespace std::chrono;
  return sys_days(year(2001) / January / 1);
}

// Reads digits of a date whose pattern was checked.
int digitsAt(std::string_view text, std::size_t place, std::size_t count) {
  int value = 0;
  for (const char c : text.substr(place, count)) value = value * 10 + (c - '0');
  return value;
}

bool matchesPattern(std::string_view text, std::string_view pattern) {
  return std::ranges::equal(text, pattern,
                            [](char c, char p) { return p == '0' ? isDigit(c) : c == p; });
}

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

// The systems' conversions know words, signs and notations of their own; none of them gets there.
std::optional<double> realFromDigits(std::string_view text) {
  if (text.empty() || !(isDigit(text.front()) || text.front() == '.')) return std::nullopt;
  if (text.find_first_not_of("0123456789.eE+-") != std::string_view::npos) return std::nullopt;
  return realFromDecimal(std::string(text));
}

int exponentFrom(std::string_view text) {
  const bool negative = takeSign(text);
  int exponent = 0;
  std::from_chars(text.data(), text.data() + text.size(), exponent);
  return negative ? -exponent : exponent;
}

// Writes D.DD and an exponent of ten as digits alone.
std::string plainNotation(std::string_view mantissa, int exponent) {
  std::string text(takeSign(mantissa) ? "-" : "");
  std::string digits(mantissa.substr(0, 1));
  if (mantissa.size() > 2) digits += mantissa.substr(2);
  if (exponent < 0) {
    return text.append("0.").append(static_cast<std::size_t>(-exponent - 1), '0').append(digits);
  }
  const auto whole = static_cast<std::size_t>(exponent) + 1;
  if (digits.size() <= whole) return text.append(digits).append(whole - digits.size(), '0');
  const std::string_view all = digits;
  return text.append(all.substr(0, whole)).append(".").append(all.substr(whole));
}

void appendDigits(std::string& text, int value, int count) {
  int divisor = 1;
  for (int i = 1; i < count; ++i) divisor *= 10;
  for (; divisor > 0; divisor /= 10) text += static_cast<char>('0' + value / divisor % 10);
}

}  // namespace

std::optional<PropertyList::Integer> integerFromText(std::string_view text) {
  const bool negative = takeSign(text);
  const bool isHex = text.starts_with("0x") || text.starts_with("0X");
  if (isHex) text.remove_prefix(2);

  PropertyList::Integer integer;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, integer.magnitude, isHex ? 16 : 10);
  if (error != std::errc() || stop != end) return std::nullopt;
  if (negative && integer.magnitude > largestNegativeMagnitude) return std::nullopt;
  integer.negative = negative && integer.magnitude != 0;
  return integer;
}

std::optional<double> realFromText(std::string_view text) {
  const bool negative = takeSign(text);
  std::optional<double> value = realFromWord(text);
  if (!value) value = realFromDigits(text);
  if (value && negative) *value = -*value;
  return value;
}

std::optional<PropertyList::Date> dateFromText(std::string_view text) {
  using namespace std::chrono;
  if (!matchesPattern(text, "0000-00-00T00:00:00Z")) return std::nullopt;
  const year_month_day day(year(digitsAt(text, 0, 4)),
                           month(static_cast<unsigned>(digitsAt(text, 5, 2))),
                           std::chrono::day(static_cast<unsigned>(digitsAt(text, 8, 2))));
  const int hour = digitsAt(text, 11, 2);
  const int minute = digitsAt(text, 14, 2);
  const int second = digitsAt(text, 17, 2);
  if (!day.ok() || hour > 23 || minute > 59 || second > 59) return std::nullopt;
  const sys_seconds point = sys_days(day) + hours(hour) + minutes(minute) + seconds(second);
  return PropertyList::Date{static_cast<double>((point - referencePoint()).count())};
}

std::optional<std::string> textFromInteger(PropertyList::Integer integer) {
  if (integer.negative && integer.magnitude > largestNegativeMagnitude) return std::nullopt;
  std::string text = integer.negative && integer.magnitude != 0 ? "-" : "";
  return text + std::to_string(integer.magnitude);
}

std::string textFromReal(double real) {
  if (std::isnan(real)) return "nan";
  if (std::isinf(real)) return real > 0 ? "+infinity" : "-infinity";
  std::string text = scientificText(real);
  const auto mark = text.find('e');
  const int exponent = exponentFrom(std::string_view(text).substr(mark + 1));
  constexpr int smallest = -4;
  constexpr int largest = 15;
  if (exponent < smallest || exponent > largest) return text;
  return plainNotation(std::string_view(text).substr(0, mark), exponent);
}

std::optional<std::string> textFromDate(PropertyList::Date date) {
  using namespace std::chrono;
  // Checked before the conversion: an integer cannot hold every number of seconds beyond this.
  constexpr double roughlyTenThousandYears = 4e11;
  if (!(std::abs(date.seconds) < roughlyTenThousandYears)) return std::nullopt;

  const auto sinceReference = seconds(static_cast<std::int64_t>(std::floor(date.seconds)));
  const sys_seconds point = referencePoint() + sinceReference;
  const sys_days midnight = floor<days>(point);
  const year_month_day day(midnight);
  const hh_mm_ss time(point - midnight);
  if (int{day.year()} < 0 || int{day.year()} > 9999) return std::nullopt;

  std::string text;
  appendDigits(text, int{day.year()}, 4);
  text += '-';
  appendDigits(text, static_cast<int>(unsigned{day.month()}), 2);
  text += '-';
  appendDigits(text, static_cast<int>(unsigned{day.day()}), 2);
  text += 'T';
  appendDigits(text, static_cast<int>(time.hours().count()), 2);
  text += ':';
  appendDigits(text, static_cast<int>(time.minutes().count()), 2);
  text += ':';
  appendDigits(text, static_cast<int>(time.seconds().count()), 2);
  text += 'Z';
  return text;
}

std::string base64FromBytes(std::string_view bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::size_t count = std::min<std::size_t>(bytes.size() - i, 3);
    std::uint32_t bits = 0;
    for (std::size_t k = 0; k < 3; ++k) {
      bits = bits << 8 | (k < count ? static_cast<unsigned char>(bytes[i + k]) : 0U);
    }
    for (std::size_t k = 0; k < 4; ++k) {
      text += k > count ? '=' : base64Digits[bits >> (18 - 6 * k) & 0x3F];
    }
  }
  return text;
}

}  // namespace qbdkr::propertylist
