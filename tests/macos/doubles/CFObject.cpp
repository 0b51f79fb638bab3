#include "macos/doubles/CFObject.h"

using doubles::CFObject;
using doubles::objectOf;

const CFAllocatorRef kCFAllocatorDefault = nullptr;

namespace doubles {

namespace {
std::atomic<std::size_t> live = 0;
}  // namespace

CFObject::CFObject(CFKind kind) : kind_(kind) { ++live; }
CFObject::~CFObject() { --live; }

std::size_t liveObjects() { return live; }

}  // namespace doubles

CFTypeID CFGetTypeID(CFTypeRef object) {
  return static_cast<CFTypeID>(objectOf<CFObject>(object).kind());
}

CFTypeRef CFRetain(CFTypeRef object) {
  objectOf<CFObject>(object).retain();
  return object;
}

void CFRelease(CFTypeRef object) { objectOf<CFObject>(object).release(); }
