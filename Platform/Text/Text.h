#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <ClientComm/Export.h>

namespace qbdkr {

// Text is UTF-8 everywhere in this system. These functions convert it where a rule counts UTF-16
// units. Each runs on any thread, does not block, and throws only std::bad_alloc.

// Tells whether bytes are UTF-8: nothing overlong, no surrogates, nothing above U+10FFFF.
[[nodiscard]] bool isValidUTF8(std::string_view text);

// Tells whether all bytes are ASCII, and none is zero: nearly all texts of events are that. Looks
// at eight bytes at a time.
[[nodiscard]] bool isPlainASCII(std::string_view text);

// Finds a noncharacter in valid UTF-8. XML refuses only U+FFFE and U+FFFF, the bus all 66 of them.
[[nodiscard]] bool hasAnyNoncharacter(std::string_view text);

// Counts the UTF-16 units of a text; a byte that is not UTF-8 counts as one.
[[nodiscard]] std::size_t utf16Length(std::string_view text);

// Converts UTF-8 to UTF-16. Each byte that is not UTF-8 becomes U+FFFD.
[[nodiscard]] std::u16string utf16FromUTF8(std::string_view text);

// Converts UTF-8 to the bytes of UTF-16, little-endian with a byte-order mark, as in a strings
// file.
[[nodiscard]] std::string utf16WithMark(std::string_view text);

// Converts UTF-16 to UTF-8. Half a surrogate pair becomes U+FFFD.
[[nodiscard]] std::string utf8FromUTF16(std::u16string_view text);

// Returns a text from outside so that it stays in one line and a terminal shows it as it is:
// control characters, marks of direction and bytes that are not UTF-8 become escapes such as \n,
// \x1b and \u202e. The characters in `kept` stay. A text of more than `most` bytes is cut, and ends
// in "...".
[[nodiscard]] QBDKR_EXPORT std::string escaped(std::string_view text, std::string_view kept = {},
                                               std::size_t most = std::string_view::npos);

// Tells whether a byte is a digit of ASCII.
[[nodiscard]] constexpr bool isDigit(char byte) { return byte >= '0' && byte <= '9'; }

// Takes a sign off the front of a number; true if it is a minus.
constexpr bool takeSign(std::string_view& text) {
  const bool isNegative = text.starts_with('-');
  if (isNegative || text.starts_with('+')) text.remove_prefix(1);
  return isNegative;
}

// Returns the value, 0 to 9, of a decimal digit of any script; absent for every other UTF-16 unit,
// halves of surrogate pairs included.
[[nodiscard]] std::optional<int> decimalDigitValue(char16_t unit);

// Compares two texts as the platform does by default: case-sensitive, canonically equivalent texts
// are equal, the others go by code point. Returns -1, 0 or 1.
[[nodiscard]] int compareText(std::u16string_view a, std::u16string_view b);

// Returns the text in lower case, by rules common to every language. Bytes that are not UTF-8 stay.
[[nodiscard]] QBDKR_EXPORT std::string lowercase(std::string_view text);

}  // namespace qbdkr
