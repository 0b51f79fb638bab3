#pragma once

#include <cstddef>
#include <string>

#include "macos/doubles/CFObject.h"

namespace doubles {

struct CFString final : CFObject {
  explicit CFString(std::u16string text) : CFObject(CFKind::string), units(std::move(text)) {}
  std::u16string units;
};

// Returns the most marks in a row that CFStringNormalize() was given since the last call of this.
[[nodiscard]] std::size_t takeLongestRun();

}  // namespace doubles
