#include "Platform/PropertyLists/PropertyListConversionMacOS.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "Platform/PropertyLists/PropertyListBounds.h"
#include "Platform/PropertyLists/PropertyListScalars.h"
#include "Platform/Text/CoreFoundationTextMacOS.h"

namespace qbdkr {

namespace {

using namespace propertylist;

std::string bytesOf(CFDataRef data) {
  const auto* bytes = reinterpret_cast<const char*>(CFDataGetBytePtr(data));
  return {bytes, static_cast<std::size_t>(CFDataGetLength(data))};
}

CFRef<CFDataRef> dataFrom(std::string_view bytes) {
  return CFRef<CFDataRef>(CFDataCreate(kCFAllocatorDefault,
                                       reinterpret_cast<const UInt8*>(bytes.data()),
                                       static_cast<CFIndex>(bytes.size())));
}

// Numbers beyond 64 signed bits have no C type that CFNumber takes or gives, but a property list
// writes them as digits.
constexpr std::string_view digitsBegin = "<integer>";
constexpr std::string_view digitsEnd = "</integer>";

std::optional<PropertyList::Integer> integerByDigits(CFNumberRef number) {
  const CFRef<CFDataRef> data(CFPropertyListCreateData(kCFAllocatorDefault, number,
                                                       kCFPropertyListXMLFormat_v1_0, 0, nullptr));
  if (!data) return std::nullopt;
  const std::string xml = bytesOf(data.get());
  const auto begin = xml.find(digitsBegin);
  const auto end = xml.find(digitsEnd);
  if (begin == std::string::npos || end == std::string::npos) return std::nullopt;
  const auto first = begin + digitsBegin.size();
  return integerFromText(std::string_view(xml).substr(first, end - first));
}

CFRef<CFPropertyListRef> numberByDigits(std::string_view digits) {
  std::string xml = "<plist version=\"1.0\">";
  xml.append(digitsBegin).append(digits).append(digitsEnd).append("</plist>");
  const auto data = dataFrom(xml);
  if (!data) return {};
  return CFRef<CFPropertyListRef>(CFPropertyListCreateWithData(
      kCFAllocatorDefault, data.get(), kCFPropertyListImmutable, nullptr, nullptr));
}

// CFNumberGetValue() also succeeds for a number beyond 64 signed bits, and gives its low bits.
bool isExactly(CFNumberRef number, std::int64_t integer) {
  const CFRef<CFNumberRef> same(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &integer));
  return same && CFNumberCompare(number, same.get(), nullptr) == kCFCompareEqualTo;
}

std::optional<PropertyList> numberFrom(CFNumberRef number) {
  if (CFNumberIsFloatType(number) != 0) {
    double real = 0;
    CFNumberGetValue(number, kCFNumberDoubleType, &real);
    return PropertyList(real);
  }
  std::int64_t integer = 0;
  if (CFNumberGetValue(number, kCFNumberSInt64Type, &integer) != 0 && isExactly(number, integer)) {
    return PropertyList(integer);
  }
  const auto large = integerByDigits(number);
  return large ? std::optional<PropertyList>(*large) : std::nullopt;
}

class Reader {
 public:
  explicit Reader(const Bounds& bounds) : maximumLevels_(bounds.levels), values_(bounds.values) {}

  // The level is the number of containers around the value.
  std::optional<PropertyList> read(CFPropertyListRef value, std::size_t level) {
    if (value == nullptr || beyondBounds_) return std::nullopt;
    if (!values_.take()) {
      beyondBounds_ = true;
      return std::nullopt;
    }
    const CFTypeID type = CFGetTypeID(value);
    if (type == CFStringGetTypeID()) {
      return PropertyList(textFromString(static_cast<CFStringRef>(value)));
    }
    if (type == CFBooleanGetTypeID()) {
      return PropertyList(CFBooleanGetValue(static_cast<CFBooleanRef>(value)) != 0);
    }
    if (type == CFNumberGetTypeID()) return numberFrom(static_cast<CFNumberRef>(value));
    if (type == CFDateGetTypeID()) {
      return PropertyList(PropertyList::Date{CFDateGetAbsoluteTime(static_cast<CFDateRef>(value))});
    }
    if (type == CFDataGetTypeID()) {
      return PropertyList(PropertyList::Data{bytesOf(static_cast<CFDataRef>(value))});
    }
    if (type == CFArrayGetTypeID()) return array(static_cast<CFArrayRef>(value), level);
    if (type == CFDictionaryGetTypeID()) {
      auto read = dictionary(static_cast<CFDictionaryRef>(value), level);
      return read ? std::optional<PropertyList>(std::move(*read)) : std::nullopt;
    }
    return std::nullopt;
  }

  std::optional<PropertyList::Dictionary> dictionary(CFDictionaryRef from, std::size_t level) {
    if (level == maximumLevels_) {
      beyondBounds_ = true;
      return std::nullopt;
    }
    const auto count = static_cast<std::size_t>(CFDictionaryGetCount(from));
    std::vector<const void*> keys(count);
    std::vector<const void*> values(count);
    CFDictionaryGetKeysAndValues(from, keys.data(), values.data());
    std::vector<PropertyList::Dictionary::Entry> entries;
    for (std::size_t i = 0; i < count; ++i) {
      if (CFGetTypeID(keys[i]) != CFStringGetTypeID()) continue;
      auto value = read(values[i], level + 1);
      if (beyondBounds_) return std::nullopt;
      if (!value) continue;
      entries.emplace_back(textFromString(static_cast<CFStringRef>(keys[i])), std::move(*value));
    }
    std::ranges::sort(entries, {}, &PropertyList::Dictionary::Entry::first);
    return PropertyList::Dictionary::fromEntries(std::move(entries));
  }

 private:
  std::optional<PropertyList> array(CFArrayRef from, std::size_t level) {
    if (level == maximumLevels_) {
      beyondBounds_ = true;
      return std::nullopt;
    }
    PropertyList::Array array;
    for (CFIndex i = 0; i < CFArrayGetCount(from); ++i) {
      auto value = read(CFArrayGetValueAtIndex(from, i), level + 1);
      if (!value) return std::nullopt;
      array.push_back(std::move(*value));
    }
    return PropertyList(std::move(array));
  }

  std::size_t maximumLevels_;
  Allowance values_;
  bool beyondBounds_ = false;
};

class Writer {
 public:
  CFRef<CFPropertyListRef> write(const PropertyList& list, std::size_t level) {
    return std::visit([&](const auto& value) { return make(value, level); }, list.value());
  }

 private:
  using Result = CFRef<CFPropertyListRef>;

  static Result make(const std::string& text, std::size_t) {
    return Result::retained(stringFromText(text).get());
  }
  static Result make(bool flag, std::size_t) {
    return Result::retained(flag ? kCFBooleanTrue : kCFBooleanFalse);
  }
  static Result make(PropertyList::Integer integer, std::size_t) {
    constexpr auto largest = std::uint64_t{std::numeric_limits<std::int64_t>::max()};
    if (integer.magnitude <= largest) {
      const auto magnitude = static_cast<std::int64_t>(integer.magnitude);
      const std::int64_t number = integer.negative ? -magnitude : magnitude;
      return Result(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &number));
    }
    const auto digits = textFromInteger(integer);
    return digits ? numberByDigits(*digits) : Result();
  }
  static Result make(double real, std::size_t) {
    return Result(CFNumberCreate(kCFAllocatorDefault, kCFNumberDoubleType, &real));
  }
  static Result make(PropertyList::Date date, std::size_t) {
    return Result(CFDateCreate(kCFAllocatorDefault, date.seconds));
  }
  static Result make(const PropertyList::Data& data, std::size_t) {
    return Result(CFDataCreate(kCFAllocatorDefault,
                               reinterpret_cast<const UInt8*>(data.bytes.data()),
                               static_cast<CFIndex>(data.bytes.size())));
  }
  Result make(const PropertyList::Array& array, std::size_t level) {
    if (level == maximumLevels) return {};
    const CFRef<CFMutableArrayRef> made(
        CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
    if (!made) return {};
    for (const PropertyList& value : array) {
      const Result item = write(value, level + 1);
      if (!item) return {};
      CFArrayAppendValue(made.get(), item.get());
    }
    return Result::retained(made.get());
  }
  Result make(const PropertyList::Dictionary& dictionary, std::size_t level) {
    if (level == maximumLevels) return {};
    const CFRef<CFMutableDictionaryRef> made(CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    if (!made) return {};
    for (const auto& [key, value] : dictionary) {
      const auto name = stringFromText(key);
      const Result item = write(value, level + 1);
      if (!name || !item) return {};
      CFDictionarySetValue(made.get(), name.get(), item.get());
    }
    return Result::retained(made.get());
  }
};

}  // namespace

std::optional<PropertyList> propertyListFrom(CFPropertyListRef list, const Bounds& bounds) {
  return Reader(bounds).read(list, 0);
}

std::optional<PropertyList::Dictionary> dictionaryFrom(CFDictionaryRef dictionary) {
  if (dictionary == nullptr) return std::nullopt;
  return Reader(Bounds()).dictionary(dictionary, 0);
}

CFRef<CFPropertyListRef> propertyListFor(const PropertyList& list) {
  return Writer().write(list, 0);
}

}  // namespace qbdkr
