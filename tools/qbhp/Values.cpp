#include "tools/qbhp/Values.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <system_error>
#include <utility>
#include <variant>

#include "Platform/PropertyLists/PropertyListScalars.h"
#include "Platform/Text/Text.h"

namespace qbdkr::tool {
namespace {

using Integer = PropertyList::Integer;

std::string numberText(const PropertyList& number) {
  return number.text().value_or("out of range");
}

std::string dateText(PropertyList::Date date) {
  return propertylist::textFromDate(date).value_or("out of range");
}

std::string hexadecimal(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    text += "0123456789abcdef"[value >> 4U];
    text += "0123456789abcdef"[value & 0xFU];
  }
  return text;
}

std::string inQuotes(std::string_view text) {
  std::string result = "\"";
  for (const char character : escaped(text)) {
    if (character == '"') result += '\\';
    result += character;
  }
  return result + '"';
}

template <class... Functions>
struct Cases : Functions... {
  using Functions::operator()...;
};
template <class... Functions>
Cases(Functions...) -> Cases<Functions...>;

// Returns a value of one line; the containers are empty here.
std::string scalarText(const PropertyList& value) {
  return std::visit(
      Cases{[](const std::string& text) { return inQuotes(text); },
            [](bool flag) { return std::string(flag ? "true" : "false"); },
            [](Integer integer) { return numberText(PropertyList(integer)); },
            [](double real) { return numberText(PropertyList(real)); },
            [](PropertyList::Date date) { return dateText(date); },
            [](const PropertyList::Data& data) { return '<' + hexadecimal(data.bytes) + '>'; },
            [](const PropertyList::Array&) { return std::string("[]"); },
            [](const PropertyList::Dictionary&) { return std::string("{}"); }},
      value.value());
}

void printNested(const PropertyList& value, std::size_t level, Output& output);

void printEntry(const std::string& label, const PropertyList& value, std::size_t level,
                Output& output) {
  const auto* dictionary = value.dictionary();
  const auto* array = value.array();
  const bool isNested =
      (dictionary != nullptr && !dictionary->empty()) || (array != nullptr && !array->empty());
  const std::string start = std::string(2 * level, ' ') + label;
  output.line(isNested ? start : start + ' ' + scalarText(value));
  if (isNested) printNested(value, level + 1, output);
}

void printNested(const PropertyList& value, std::size_t level, Output& output) {
  if (const auto* dictionary = value.dictionary()) {
    for (const auto& [key, entry] : *dictionary) {
      printEntry(escaped(key) + ':', entry, level, output);
    }
  } else if (const auto* array = value.array()) {
    for (const auto& entry : *array) printEntry("-", entry, level, output);
  }
}

template <class Number>
std::optional<Number> numberFrom(std::string_view text) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::optional<PropertyList> integerFrom(std::string_view text) {
  if (const auto number = numberFrom<std::int64_t>(text)) return PropertyList(*number);
  const auto number = numberFrom<std::uint64_t>(text);
  if (!number) return std::nullopt;
  Integer integer;
  integer.magnitude = *number;
  return PropertyList(integer);
}

std::optional<PropertyList> realFrom(const std::string& text) {
  if (text.empty() || text.find_first_not_of("0123456789+-.eE") != std::string::npos) {
    return std::nullopt;
  }
  // The tool keeps the locale "C".
  char* end = nullptr;
  const double number = std::strtod(text.c_str(), &end);
  if (end != text.c_str() + text.size() || !std::isfinite(number)) return std::nullopt;
  return PropertyList(number);
}

std::optional<PropertyList> flagFrom(std::string_view text) {
  if (text == "true" || text == "yes" || text == "1") return PropertyList(true);
  if (text == "false" || text == "no" || text == "0") return PropertyList(false);
  return std::nullopt;
}

std::optional<PropertyList> dateFrom(std::string_view text) {
  const auto date = propertylist::dateFromText(text);
  return date ? std::optional(PropertyList(*date)) : std::nullopt;
}

std::optional<PropertyList> dataFrom(std::string_view text) {
  std::string bytes;
  if (text.size() % 2 != 0) return std::nullopt;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    const std::string_view digits = text.substr(i, 2);
    unsigned char byte = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
    if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
    bytes += static_cast<char>(byte);
  }
  return PropertyList(PropertyList::Data{std::move(bytes)});
}

std::optional<PropertyList> typedFrom(const std::string& text, const std::string& type) {
  if (type == "flag") return flagFrom(text);
  if (type == "integer") return integerFrom(text);
  if (type == "real") return realFrom(text);
  if (type == "date") return dateFrom(text);
  if (type == "data") return dataFrom(text);
  return isValidUTF8(text) ? std::optional(PropertyList(text)) : std::nullopt;
}

}  // namespace

JSON jsonOf(const PropertyList& value) {
  return std::visit(
      Cases{[](const std::string& text) { return JSON(text); },
            [](bool flag) { return JSON(flag); },
            [](Integer integer) {
              if (!integer.negative) return JSON(integer.magnitude);
              return JSON(static_cast<std::int64_t>(0 - integer.magnitude));
            },
            [](double real) { return std::isfinite(real) ? JSON(real) : JSON(nullptr); },
            [](PropertyList::Date date) { return JSON(dateText(date)); },
            [](const PropertyList::Data& data) {
              return JSON(propertylist::base64FromBytes(data.bytes));
            },
            [](const PropertyList::Array& array) {
              JSON list = JSON::array();
              for (const auto& entry : array) list.push_back(jsonOf(entry));
              return list;
            },
            [](const PropertyList::Dictionary& dictionary) {
              JSON object = JSON::object();
              for (const auto& [key, entry] : dictionary) object[key] = jsonOf(entry);
              return object;
            }},
      value.value());
}

void printValue(const PropertyList& value, Output& output) {
  if (const auto* text = value.string()) {
    output.outside(*text);
  } else if (value.dictionary() != nullptr || value.array() != nullptr) {
    printNested(value, 0, output);
  } else {
    output.line(scalarText(value));
  }
}

void offerType(CLI::App& command, std::string& type) {
  command
      .add_option("--type", type,
                  "Type of VALUE: string (default), flag,\n"
                  "integer, real, date (2026-01-31T12:00:00Z)\n"
                  "or data (hexadecimal digits)")
      ->check(CLI::IsMember({"string", "flag", "integer", "real", "date", "data"}).description(""))
      ->type_name("TYPE");
}

PropertyList valueFrom(const std::string& text, const std::string& type) {
  auto value = typedFrom(text, type);
  if (value) return *std::move(value);
  throw UsageFailure('"' + text + "\" is no value of the type " + (type.empty() ? "string" : type));
}

}  // namespace qbdkr::tool
