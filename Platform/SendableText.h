#pragma once

#include <algorithm>
#include <string_view>

#include "Platform/Text.h"

namespace qbdkr {

// What a text of an event may hold, on every platform: UTF-8 without a NUL.
[[nodiscard]] inline bool isSendable(std::string_view text) {
  const auto isPlain = [](char byte) { return static_cast<signed char>(byte) > 0; };
  if (std::ranges::all_of(text, isPlain)) return true;
  return text.find('\0') == std::string_view::npos && isValidUTF8(text);
}

}  // namespace qbdkr
