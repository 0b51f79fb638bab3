#pragma once

#include <string>
#include <string_view>

namespace qbdkr {

constexpr bool isHighSurrogate(char32_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
constexpr bool isLowSurrogate(char32_t unit) { return unit >= 0xDC00 && unit < 0xE000; }
constexpr bool isSurrogate(char32_t unit) { return unit >= 0xD800 && unit < 0xE000; }

// Takes one character off the front of a text that is not empty; half a surrogate pair is returned
// as it is.
inline char32_t takeCharacter(std::u16string_view& text) {
  const char32_t unit = text.front();
  text.remove_prefix(1);
  if (!isHighSurrogate(unit) || text.empty() || !isLowSurrogate(text.front())) return unit;
  const char32_t low = text.front();
  text.remove_prefix(1);
  return 0x10000 + ((unit - 0xD800) << 10U) + (low - 0xDC00);
}

inline void appendUTF16(std::u16string& text, char32_t character) {
  if (character < 0x10000) {
    text += static_cast<char16_t>(character);
    return;
  }
  text += static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10U));
  text += static_cast<char16_t>(0xDC00 + ((character - 0x10000) & 0x3FFU));
}

}  // namespace qbdkr
