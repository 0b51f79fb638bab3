#include <algorithm>
#include <string>
#include <utility>

#include "macos/doubles/CFObject.h"

using namespace doubles;

namespace {

struct URL final : CFObject {
  explicit URL(std::string where) : CFObject(CFKind::url), path(std::move(where)) {}
  const std::string path;
};

}  // namespace

CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef, const UInt8* buffer,
                                                 CFIndex bufLen, Boolean) {
  return refTo<CFURLRef>(new URL(std::string(buffer, buffer + bufLen)));
}

Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean, UInt8* buffer, CFIndex maxBufLen) {
  const std::string& path = objectOf<URL>(url).path;
  if (static_cast<CFIndex>(path.size()) >= maxBufLen) return 0;
  *std::ranges::copy(path, buffer).out = 0;
  return 1;
}
