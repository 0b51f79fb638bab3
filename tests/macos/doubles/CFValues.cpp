#include "macos/doubles/CFValues.h"

#include <cstdint>
#include <cstring>

using namespace qbdkr;
using namespace doubles;

namespace {

struct Truth final : CFObject {
  explicit Truth(bool what) : CFObject(CFKind::boolean), value(what) {}
  const bool value;
};

struct Date final : CFObject {
  explicit Date(CFAbsoluteTime time) : CFObject(CFKind::date), seconds(time) {}
  const CFAbsoluteTime seconds;
};

}  // namespace

const CFBooleanRef kCFBooleanTrue = refTo<CFBooleanRef>(new Truth(true));
const CFBooleanRef kCFBooleanFalse = refTo<CFBooleanRef>(new Truth(false));

CFTypeID CFBooleanGetTypeID() { return static_cast<CFTypeID>(CFKind::boolean); }

Boolean CFBooleanGetValue(CFBooleanRef boolean) { return objectOf<Truth>(boolean).value; }

CFTypeID CFNumberGetTypeID() { return static_cast<CFTypeID>(CFKind::number); }

CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType theType, const void* valuePtr) {
  if (theType == kCFNumberDoubleType) {
    return refTo<CFNumberRef>(new CFNumber(*static_cast<const double*>(valuePtr)));
  }
  const PropertyList::Integer integer(*static_cast<const std::int64_t*>(valuePtr));
  return refTo<CFNumberRef>(new CFNumber(integer));
}

// Gives the low bits of an integer beyond 64 bits, and true, as the system does.
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void* valuePtr) {
  const auto& object = objectOf<CFNumber>(number);
  if (theType == kCFNumberDoubleType) {
    std::memcpy(valuePtr, &object.real, sizeof object.real);
    return object.isReal;
  }
  const auto [magnitude, isNegative] = object.integer;
  const std::uint64_t bits = isNegative ? 0 - magnitude : magnitude;
  std::memcpy(valuePtr, &bits, sizeof bits);
  return !object.isReal;
}

Boolean CFNumberIsFloatType(CFNumberRef number) { return objectOf<CFNumber>(number).isReal; }

// Orders no numbers: only their equality is asked for.
CFComparisonResult CFNumberCompare(CFNumberRef number, CFNumberRef otherNumber, void*) {
  const bool areEqual =
      objectOf<CFNumber>(number).integer == objectOf<CFNumber>(otherNumber).integer;
  return areEqual ? kCFCompareEqualTo : static_cast<CFComparisonResult>(1);
}

CFTypeID CFDateGetTypeID() { return static_cast<CFTypeID>(CFKind::date); }

CFDateRef CFDateCreate(CFAllocatorRef, CFAbsoluteTime at) { return refTo<CFDateRef>(new Date(at)); }

CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef theDate) { return objectOf<Date>(theDate).seconds; }

CFTypeID CFDataGetTypeID() { return static_cast<CFTypeID>(CFKind::data); }

CFDataRef CFDataCreate(CFAllocatorRef, const UInt8* bytes, CFIndex length) {
  return refTo<CFDataRef>(new CFData(std::string(bytes, bytes + length)));
}

const UInt8* CFDataGetBytePtr(CFDataRef theData) {
  return reinterpret_cast<const UInt8*>(objectOf<CFData>(theData).bytes.data());
}

CFIndex CFDataGetLength(CFDataRef theData) {
  return static_cast<CFIndex>(objectOf<CFData>(theData).bytes.size());
}
