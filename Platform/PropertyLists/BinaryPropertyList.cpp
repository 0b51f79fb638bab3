#include "Platform/PropertyLists/BinaryPropertyList.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <ClientComm/PropertyList.h>

#include "Platform/PropertyLists/PropertyListBounds.h"
#include "Platform/Text/Text.h"

namespace qbdkr::propertylist {

namespace {

constexpr std::string_view magic = "bplist00";
constexpr std::size_t trailerSize = 32;

// The kind of an object: the upper half of its first byte.
enum class Kind : unsigned {
  simple = 0x0,
  integer = 0x1,
  real = 0x2,
  date = 0x3,
  data = 0x4,
  asciiText = 0x5,
  utf16Text = 0x6,
  identifier = 0x8,
  array = 0xA,
  set = 0xC,
  dictionary = 0xD,
};

constexpr unsigned simpleFalse = 0x8;
constexpr unsigned simpleTrue = 0x9;
constexpr unsigned dateWidth = 3;
constexpr unsigned longCount = 0xF;

// An object whose bytes were found to lie within the list.
struct Object {
  Kind kind = Kind::simple;
  // For a simple object, the lower half of its first byte; for a number, its bytes; otherwise the
  // units of the kind: bytes, UTF-16 units, references or pairs of references.
  std::size_t count = 0;
  std::size_t payload = 0;
};

bool isText(Kind kind) { return kind == Kind::asciiText || kind == Kind::utf16Text; }

// Each value costs at least one byte, its reference. Only containers that are named more than once
// make a list stand for more values than it has bytes. Writers share texts and numbers, and hardly
// ever containers: a factor of two leaves room for those that do.
constexpr std::size_t mostValuesPerByte = 2;

std::size_t mostValues(std::string_view bytes, const Bounds& bounds) {
  return std::min(bounds.values, mostValuesPerByte * bytes.size());
}

// Reads in two passes. The first only walks, within the bounds and without building anything:
// objects are shared, so a small list can stand for a huge value. It needs no check for cycles, as
// every path into one ends at the bound on levels.
class BinaryReader {
 public:
  BinaryReader(std::string_view bytes, const Bounds& bounds)
      : bytes_(bytes),
        maximumLevels_(bounds.levels),
        values_(mostValues(bytes, bounds)),
        content_(bounds.content) {}

  std::optional<PropertyList> read() {
    if (!readTrailer() || !measure(topObject_, 0)) return std::nullopt;
    return build(topObject_);
  }

 private:
  bool readTrailer() {
    if (!bytes_.starts_with(magic) || bytes_.size() < magic.size() + trailerSize) return false;
    const std::size_t trailer = bytes_.size() - trailerSize;
    offsetWidth_ = static_cast<std::size_t>(number(trailer + 6, 1));
    referenceWidth_ = static_cast<std::size_t>(number(trailer + 7, 1));
    objectCount_ = number(trailer + 8, 8);
    topObject_ = number(trailer + 16, 8);
    const std::uint64_t table = number(trailer + 24, 8);
    if (!isWidth(offsetWidth_) || !isWidth(referenceWidth_)) return false;
    if (topObject_ >= objectCount_) return false;
    if (table <= magic.size() || table >= trailer) return false;
    objectsEnd_ = static_cast<std::size_t>(table);
    // Divides, as a multiplication could overflow.
    const std::size_t tableSize = trailer - objectsEnd_;
    return tableSize % offsetWidth_ == 0 && tableSize / offsetWidth_ == objectCount_;
  }

  static bool isWidth(std::size_t width) { return width >= 1 && width <= 8; }

  // Reads a big-endian number of up to eight bytes, at a place that was checked.
  [[nodiscard]] std::uint64_t number(std::size_t place, std::size_t width) const {
    std::uint64_t value = 0;
    for (const char c : bytes_.substr(place, width)) {
      value = value << 8 | static_cast<unsigned char>(c);
    }
    return value;
  }

  [[nodiscard]] std::optional<Object> objectAt(std::uint64_t index) const {
    if (index >= objectCount_) return std::nullopt;
    const std::uint64_t offset =
        number(objectsEnd_ + static_cast<std::size_t>(index) * offsetWidth_, offsetWidth_);
    if (offset < magic.size() || offset >= objectsEnd_) return std::nullopt;

    const auto place = static_cast<std::size_t>(offset);
    const std::uint64_t marker = number(place, 1);
    Object object{static_cast<Kind>(marker >> 4), marker & 0xF, place + 1};
    const std::optional<std::size_t> unit = unitSize(object);
    if (!unit || !fits(object, *unit)) return std::nullopt;
    return object;
  }

  // Returns the size in bytes of one of the units that the object counts, and completes its count.
  // Absent for a kind or a width that no list has. The null object is one of these: no value stands
  // for it.
  std::optional<std::size_t> unitSize(Object& object) const {
    switch (object.kind) {
      case Kind::simple:
        if (object.count != simpleFalse && object.count != simpleTrue) return std::nullopt;
        return 0;
      case Kind::integer:
        if (object.count > 4) return std::nullopt;
        object.count = std::size_t{1} << object.count;
        return 1;
      case Kind::real:
        if (object.count != 2 && object.count != 3) return std::nullopt;
        object.count = std::size_t{1} << object.count;
        return 1;
      case Kind::date:
        if (object.count != dateWidth) return std::nullopt;
        object.count = std::size_t{1} << object.count;
        return 1;
      case Kind::identifier:
        ++object.count;
        if (object.count > 8) return std::nullopt;
        return 1;
      case Kind::data:
      case Kind::asciiText:
        return readLongCount(object) ? std::optional<std::size_t>(1) : std::nullopt;
      case Kind::utf16Text:
        return readLongCount(object) ? std::optional<std::size_t>(2) : std::nullopt;
      case Kind::array:
      case Kind::set:
        return readLongCount(object) ? std::optional(referenceWidth_) : std::nullopt;
      case Kind::dictionary:
        return readLongCount(object) ? std::optional(2 * referenceWidth_) : std::nullopt;
    }
    return std::nullopt;
  }

  // Reads a count of fifteen or more: it follows the first byte as a number of its own.
  bool readLongCount(Object& object) const {
    if (object.count != longCount) return true;
    if (object.payload >= objectsEnd_) return false;
    const std::uint64_t marker = number(object.payload, 1);
    if (static_cast<Kind>(marker >> 4) != Kind::integer || (marker & 0xF) > 3) return false;
    const std::size_t width = std::size_t{1} << (marker & 0xF);
    if (width >= objectsEnd_ - object.payload) return false;
    object.count = static_cast<std::size_t>(number(object.payload + 1, width));
    object.payload += 1 + width;
    return true;
  }

  [[nodiscard]] bool fits(const Object& object, std::size_t unit) const {
    if (unit == 0) return true;
    return object.count <= (objectsEnd_ - object.payload) / unit;
  }

  [[nodiscard]] std::uint64_t reference(const Object& object, std::size_t place) const {
    return number(object.payload + place * referenceWidth_, referenceWidth_);
  }

  // Walks everything the object stands for. The level is the number of containers around it.
  bool measure(std::uint64_t index, std::size_t level) {
    if (!values_.take()) return false;
    const std::optional<Object> object = objectAt(index);
    if (!object) return false;
    switch (object->kind) {
      case Kind::data:
      case Kind::asciiText:
      case Kind::utf16Text:
        return takeContent(*object);
      case Kind::identifier:  // becomes a dictionary of one number
        return level < maximumLevels_ && values_.take();
      case Kind::array:
      case Kind::set:
        return level < maximumLevels_ && measureReferences(*object, 0, object->count, level);
      case Kind::dictionary:
        return level < maximumLevels_ && measureKeys(*object) &&
               measureReferences(*object, object->count, 2 * object->count, level);
      default:
        return true;
    }
  }

  bool measureReferences(const Object& object, std::size_t first, std::size_t last,
                         std::size_t level) {
    for (std::size_t i = first; i < last; ++i) {
      if (!measure(reference(object, i), level + 1)) return false;
    }
    return true;
  }

  bool measureKeys(const Object& dictionary) {
    for (std::size_t i = 0; i < dictionary.count; ++i) {
      const std::optional<Object> key = objectAt(reference(dictionary, i));
      if (!key || !isText(key->kind) || !takeContent(*key)) return false;
    }
    return true;
  }

  // A UTF-16 unit becomes at most three bytes.
  bool takeContent(const Object& object) {
    return content_.take(std::uint64_t{object.count} * (object.kind == Kind::utf16Text ? 3 : 1));
  }

  [[nodiscard]] std::optional<PropertyList> build(std::uint64_t index) const {
    const std::optional<Object> object = objectAt(index);
    if (!object) return std::nullopt;
    switch (object->kind) {
      case Kind::simple:
        return PropertyList(object->count == simpleTrue);
      case Kind::integer:
        return integer(*object);
      case Kind::real:
        return PropertyList(real(*object));
      case Kind::date:
        return date(*object);
      case Kind::data:
        return PropertyList(
            PropertyList::Data{std::string(bytes_.substr(object->payload, object->count))});
      case Kind::asciiText:
      case Kind::utf16Text:
        return textValue(*object);
      case Kind::identifier:
        return identifier(*object);
      case Kind::array:
      case Kind::set:
        return array(*object);
      case Kind::dictionary:
        return dictionary(*object);
    }
    return std::nullopt;
  }

  // Only eight and sixteen bytes have a sign; of sixteen, the upper half may only repeat it.
  [[nodiscard]] std::optional<PropertyList> integer(const Object& object) const {
    PropertyList::Integer value;
    if (object.count < 8) {
      value.magnitude = number(object.payload, object.count);
      return PropertyList(value);
    }
    const bool isWide = object.count == 16;
    const std::uint64_t low = number(object.payload + (isWide ? 8 : 0), 8);
    const bool isLowNegative = (low >> 63) != 0;
    const std::uint64_t high =
        isWide ? number(object.payload, 8) : (isLowNegative ? ~std::uint64_t{0} : 0);
    if (high == 0) {
      value.magnitude = low;
      return PropertyList(value);
    }
    if (high != ~std::uint64_t{0} || !isLowNegative) return std::nullopt;
    value.magnitude = 0 - low;
    value.negative = true;
    return PropertyList(value);
  }

  [[nodiscard]] double real(const Object& object) const {
    const std::uint64_t bits = number(object.payload, object.count);
    if (object.count == 4) return std::bit_cast<float>(static_cast<std::uint32_t>(bits));
    return std::bit_cast<double>(bits);
  }

  [[nodiscard]] std::optional<PropertyList> date(const Object& object) const {
    const double seconds = real(object);
    if (!std::isfinite(seconds)) return std::nullopt;
    return PropertyList(PropertyList::Date{seconds});
  }

  [[nodiscard]] std::optional<PropertyList> textValue(const Object& object) const {
    std::optional<std::string> value = text(object);
    if (!value) return std::nullopt;
    return PropertyList(std::move(*value));
  }

  [[nodiscard]] std::optional<std::string> text(const Object& object) const {
    if (object.kind == Kind::utf16Text) return utf16Text(object);
    const std::string_view ascii = bytes_.substr(object.payload, object.count);
    const bool isASCII =
        std::ranges::all_of(ascii, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    if (!isASCII) return std::nullopt;
    return std::string(ascii);
  }

  [[nodiscard]] std::string utf16Text(const Object& object) const {
    std::u16string units;
    units.reserve(object.count);
    for (std::size_t i = 0; i < object.count; ++i) {
      units += static_cast<char16_t>(number(object.payload + 2 * i, 2));
    }
    return utf8FromUTF16(units);
  }

  // Returns an identifier of a keyed archive as the other forms write it.
  [[nodiscard]] PropertyList identifier(const Object& object) const {
    PropertyList::Integer value;
    value.magnitude = number(object.payload, object.count);
    PropertyList::Dictionary dictionary;
    dictionary.set("CF$UID", value);
    return dictionary;
  }

  [[nodiscard]] std::optional<PropertyList> array(const Object& object) const {
    PropertyList::Array values;
    values.reserve(object.count);
    for (std::size_t i = 0; i < object.count; ++i) {
      std::optional<PropertyList> value = build(reference(object, i));
      if (!value) return std::nullopt;
      values.push_back(std::move(*value));
    }
    return PropertyList(std::move(values));
  }

  [[nodiscard]] std::optional<PropertyList> dictionary(const Object& object) const {
    std::vector<PropertyList::Dictionary::Entry> entries;
    entries.reserve(object.count);
    for (std::size_t i = 0; i < object.count; ++i) {
      const std::optional<Object> keyObject = objectAt(reference(object, i));
      std::optional<std::string> key = keyObject ? text(*keyObject) : std::nullopt;
      std::optional<PropertyList> value = build(reference(object, object.count + i));
      if (!key || !value) return std::nullopt;
      entries.emplace_back(std::move(*key), std::move(*value));
    }
    return PropertyList(PropertyList::Dictionary::fromEntries(std::move(entries)));
  }

  std::string_view bytes_;
  std::size_t maximumLevels_;
  std::size_t offsetWidth_ = 0;
  std::size_t referenceWidth_ = 0;
  std::uint64_t objectCount_ = 0;
  std::uint64_t topObject_ = 0;
  std::size_t objectsEnd_ = 0;  // where the table of their offsets begins
  Allowance values_;
  Allowance content_;
};

}  // namespace

std::optional<PropertyList> readBinary(std::string_view bytes, const Bounds& bounds) {
  return BinaryReader(bytes, bounds).read();
}

}  // namespace qbdkr::propertylist
