#pragma once

#include <string_view>

#include "Platform/Text.h"

namespace qbdkr {

// What a text of an event may hold, on every platform: UTF-8 without a NUL.
[[nodiscard]] inline bool isSendable(std::string_view text) {
  // Every text of every event comes by here. Without an early end the loop takes many bytes at a
  // time.
  unsigned char all = 0;
  bool hasNUL = false;
  for (const char byte : text) {
    all |= static_cast<unsigned char>(byte);
    hasNUL |= byte == '\0';
  }
  if (hasNUL) return false;
  return all < 0x80 || isValidUTF8(text);
}

}  // namespace qbdkr
