#include "macos/doubles/CFObject.h"

const CFAllocatorRef kCFAllocatorDefault = nullptr;

namespace {

doubles::Object& objectOf(CFTypeRef reference) {
  return *static_cast<doubles::Object*>(const_cast<void*>(reference));
}

}  // namespace

CFTypeRef CFRetain(CFTypeRef object) {
  objectOf(object).retain();
  return object;
}

void CFRelease(CFTypeRef object) { objectOf(object).release(); }
