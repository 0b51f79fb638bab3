// Arrays and dictionaries retain what is put in: the callbacks of "kCFType" are the only ones here.

#include <algorithm>
#include <utility>
#include <vector>

#include "macos/doubles/CFString.h"

using namespace doubles;

namespace {

struct Array final : CFObject {
  Array() : CFObject(CFKind::array) {}
  Array(const Array&) = delete;
  Array& operator=(const Array&) = delete;
  ~Array() override { std::ranges::for_each(values, CFRelease); }
  std::vector<CFTypeRef> values;
};

struct Dictionary final : CFObject {
  Dictionary() : CFObject(CFKind::dictionary) {}
  Dictionary(const Dictionary&) = delete;
  Dictionary& operator=(const Dictionary&) = delete;
  ~Dictionary() override {
    for (const auto& [key, value] : entries) {
      CFRelease(key);
      CFRelease(value);
    }
  }
  std::vector<std::pair<CFTypeRef, CFTypeRef>> entries;
};

bool areEqualKeys(CFTypeRef a, CFTypeRef b) {
  if (a == b) return true;
  const auto isString = [](CFTypeRef key) { return CFGetTypeID(key) == CFStringGetTypeID(); };
  return isString(a) && isString(b) && objectOf<CFString>(a).units == objectOf<CFString>(b).units;
}

}  // namespace

const CFArrayCallBacks kCFTypeArrayCallBacks = {};
const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks = {};
const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks = {};

CFTypeID CFArrayGetTypeID() { return static_cast<CFTypeID>(CFKind::array); }

CFIndex CFArrayGetCount(CFArrayRef theArray) {
  return static_cast<CFIndex>(objectOf<Array>(theArray).values.size());
}

const void* CFArrayGetValueAtIndex(CFArrayRef theArray, CFIndex idx) {
  return objectOf<Array>(theArray).values.at(static_cast<std::size_t>(idx));
}

CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef, CFIndex, const CFArrayCallBacks*) {
  return refTo<CFMutableArrayRef>(new Array);
}

void CFArrayAppendValue(CFMutableArrayRef theArray, const void* value) {
  objectOf<Array>(theArray).values.push_back(CFRetain(value));
}

CFTypeID CFDictionaryGetTypeID() { return static_cast<CFTypeID>(CFKind::dictionary); }

CFIndex CFDictionaryGetCount(CFDictionaryRef theDict) {
  return static_cast<CFIndex>(objectOf<Dictionary>(theDict).entries.size());
}

// Gives the last entry first: the system promises no order.
void CFDictionaryGetKeysAndValues(CFDictionaryRef theDict, const void** keys, const void** values) {
  const auto& entries = objectOf<Dictionary>(theDict).entries;
  for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
    *keys++ = entry->first;
    *values++ = entry->second;
  }
}

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef, CFIndex,
                                                 const CFDictionaryKeyCallBacks*,
                                                 const CFDictionaryValueCallBacks*) {
  return refTo<CFMutableDictionaryRef>(new Dictionary);
}

void CFDictionarySetValue(CFMutableDictionaryRef theDict, const void* key, const void* value) {
  auto& entries = objectOf<Dictionary>(theDict).entries;
  CFRetain(value);
  for (auto& [known, old] : entries) {
    if (!areEqualKeys(known, key)) continue;
    CFRelease(std::exchange(old, value));
    return;
  }
  entries.emplace_back(CFRetain(key), value);
}
