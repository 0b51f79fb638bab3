#include "Platform/PropertyLists/PropertyListWriter.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <variant>

#include <ClientComm/PropertyList.h>

#include "Platform/PropertyLists/PropertyListBounds.h"
#include "Platform/PropertyLists/PropertyListScalars.h"
#include "Platform/PropertyLists/XMLPropertyList.h"
#include "Platform/Text/Text.h"

namespace qbdkr {

namespace {

using namespace propertylist;

// Checks a whole value, before any of it is written: it must fit into XML and be readable again.
class Fitness {
 public:
  // The level is the number of containers around the value.
  [[nodiscard]] bool of(const PropertyList& list, std::size_t level) {
    return values_.take() &&
           std::visit([&](const auto& value) { return fits(value, level); }, list.value());
  }

 private:
  [[nodiscard]] bool fits(const std::string& text, std::size_t) {
    return content_.take(text.size()) && std::ranges::all_of(text, isXMLByte) &&
           isValidUTF8(text) && !hasNoncharacter(text);
  }
  [[nodiscard]] bool fits(const PropertyList::Data& data, std::size_t) {
    return content_.take(data.bytes.size());
  }
  [[nodiscard]] bool fits(PropertyList::Integer integer, std::size_t) {
    return textFromInteger(integer).has_value();
  }
  [[nodiscard]] bool fits(PropertyList::Date date, std::size_t) {
    return textFromDate(date).has_value();
  }
  [[nodiscard]] bool fits(bool, std::size_t) { return true; }
  [[nodiscard]] bool fits(double, std::size_t) { return true; }
  [[nodiscard]] bool fits(const PropertyList::Array& array, std::size_t level) {
    return level < maximumLevels && std::ranges::all_of(array, [&](const PropertyList& value) {
             return of(value, level + 1);
           });
  }
  [[nodiscard]] bool fits(const PropertyList::Dictionary& dictionary, std::size_t level) {
    return level < maximumLevels && std::ranges::all_of(dictionary, [&](const auto& entry) {
             return fits(entry.first, level) && of(entry.second, level + 1);
           });
  }

  Allowance values_{maximumValues};
  Allowance content_{maximumBytes};
};

}  // namespace

std::optional<std::string> xmlPropertyList(const PropertyList& value) {
  if (!Fitness().of(value, 0)) return std::nullopt;
  auto text = writeXML(value);
  if (!text || text->size() > maximumBytes) return std::nullopt;
  return text;
}

}  // namespace qbdkr
