// Reads any bytes, and writes the value as XML, which must read back as the same value. A flag that
// is set in the bytes or in what was written must give what is written of the changed value.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include <ClientComm/PropertyList.h>

#include "Platform/PropertyLists/FlagEdit.h"
#include "Platform/PropertyLists/PropertyListBounds.h"
#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/PropertyLists/PropertyListWriter.h"

namespace {

using qbdkr::PropertyList;

// Returns whether a value can equal the one that is read back: NaN equals nothing, and the XML form
// has whole seconds only.
struct IsComparable {
  bool operator()(double real) const { return !std::isnan(real); }
  bool operator()(PropertyList::Date date) const {
    return std::floor(date.seconds) == date.seconds;
  }
  bool operator()(const PropertyList::Array& array) const {
    for (const PropertyList& value : array) {
      if (!std::visit(*this, value.value())) return false;
    }
    return true;
  }
  bool operator()(const PropertyList::Dictionary& dictionary) const {
    for (const auto& [key, value] : dictionary) {
      if (!std::visit(*this, value.value())) return false;
    }
    return true;
  }
  template <class Scalar>
  bool operator()(const Scalar&) const {
    return true;
  }
};

void require(bool condition) {
  if (!condition) std::abort();
}

void requireSameEdits(std::string_view bytes) {
  constexpr std::string_view key = "Flag";
  const auto edit = qbdkr::FlagEdit::find(bytes, key);
  if (!edit) return;
  auto list = qbdkr::propertylist::parseDictionary(bytes, qbdkr::propertylist::Bounds());
  require(list.has_value());
  require(qbdkr::xmlPropertyList(*list) == bytes);
  const PropertyList* const before = list->find(key);
  require(edit->flag().has_value() == (before != nullptr));
  if (before != nullptr) require(*before == *edit->flag());
  for (const bool flag : {true, false}) {
    list->set(key, flag);
    require(edit->with(flag) == qbdkr::xmlPropertyList(*list));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  requireSameEdits(bytes);
  const std::optional<PropertyList> list = qbdkr::parsePropertyList(bytes);
  if (!list) return 0;
  const std::optional<std::string> xml = qbdkr::xmlPropertyList(*list);
  if (!xml) return 0;

  requireSameEdits(*xml);

  const std::optional<PropertyList> again = qbdkr::parsePropertyList(*xml);
  require(again.has_value());
  require(qbdkr::xmlPropertyList(*again) == xml);
  if (std::visit(IsComparable(), list->value())) require(*again == *list);
  return 0;
}
