#include "Platform/Text.h"

#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <compare>
#include <iterator>
#include <utility>
#include <vector>

namespace qbdkr {

namespace {

constexpr char32_t replacementCharacter = 0xFFFD;

constexpr bool isASCII(char c) { return static_cast<unsigned char>(c) < 0x80; }
constexpr bool isHighSurrogate(char32_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
constexpr bool isLowSurrogate(char32_t unit) { return unit >= 0xDC00 && unit < 0xE000; }
constexpr bool isSurrogate(char32_t unit) { return unit >= 0xD800 && unit < 0xE000; }

// One character of a UTF-8 text and the bytes it takes; no bytes when there is no character.
struct Decoded {
  char32_t character = replacementCharacter;
  std::size_t length = 0;
};

Decoded decodeFront(std::string_view text) {
  if (isASCII(text.front())) return {static_cast<unsigned char>(text.front()), 1};
  utf8proc_int32_t character = 0;
  const utf8proc_ssize_t length =
      utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                       static_cast<utf8proc_ssize_t>(text.size()), &character);
  if (length <= 0) return {};
  return {static_cast<char32_t>(character), static_cast<std::size_t>(length)};
}

void appendUTF8(std::string& text, char32_t character) {
  if (character < 0x80) {
    text += static_cast<char>(character);
    return;
  }
  std::array<utf8proc_uint8_t, 4> bytes{};
  const auto length = utf8proc_encode_char(static_cast<utf8proc_int32_t>(character), bytes.data());
  for (utf8proc_ssize_t i = 0; i < length; ++i) {
    text += static_cast<char>(bytes[static_cast<std::size_t>(i)]);
  }
}

void appendUTF16(std::u16string& text, char32_t character) {
  if (character < 0x10000) {
    text += static_cast<char16_t>(character);
    return;
  }
  text += static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10));
  text += static_cast<char16_t>(0xDC00 + ((character - 0x10000) & 0x3FF));
}

// Takes one character off the front; half a pair stands for itself.
char32_t takeCharacter(std::u16string_view& text) {
  const char32_t unit = text.front();
  text.remove_prefix(1);
  if (!isHighSurrogate(unit) || text.empty() || !isLowSurrogate(text.front())) return unit;
  const char32_t low = text.front();
  text.remove_prefix(1);
  return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
}

int combiningClass(char32_t character) {
  return utf8proc_get_property(static_cast<utf8proc_int32_t>(character))->combining_class;
}

void appendDecomposed(std::u32string& text, char32_t character) {
  std::array<utf8proc_int32_t, 32> parts{};
  int boundClass = 0;
  const auto count = utf8proc_decompose_char(static_cast<utf8proc_int32_t>(character), parts.data(),
                                             static_cast<utf8proc_ssize_t>(parts.size()),
                                             UTF8PROC_DECOMPOSE, &boundClass);
  if (count <= 0 || count > static_cast<utf8proc_ssize_t>(parts.size())) {
    text += character;
    return;
  }
  std::transform(parts.begin(), parts.begin() + count, std::back_inserter(text),
                 [](utf8proc_int32_t part) { return static_cast<char32_t>(part); });
}

// Sorted by run, as the package's own reordering takes quadratic time for a long run of marks.
void orderMarks(std::u32string& text) {
  const auto isMark = [](char32_t character) { return combiningClass(character) != 0; };
  for (auto run = text.begin(); run != text.end();) {
    run = std::find_if(run, text.end(), isMark);
    const auto end = std::find_if_not(run, text.end(), isMark);
    std::stable_sort(run, end,
                     [](char32_t a, char32_t b) { return combiningClass(a) < combiningClass(b); });
    run = end;
  }
}

// Decomposed here from characters rather than by the package from UTF-8, which has no place for
// half a pair: two different texts must not become equal.
std::u32string canonicalDecomposition(std::u16string_view text) {
  std::u32string decomposed;
  decomposed.reserve(text.size());
  while (!text.empty()) {
    const char32_t character = takeCharacter(text);
    // Nothing below has a decomposition.
    if (character < 0xC0) {
      decomposed += character;
    } else {
      appendDecomposed(decomposed, character);
    }
  }
  orderMarks(decomposed);
  return decomposed;
}

int sign(std::strong_ordering order) {
  return std::is_lt(order) ? -1 : (std::is_gt(order) ? 1 : 0);
}

// No character below the first accented letter has a decomposition.
bool isPlain(std::u16string_view text) {
  return std::ranges::all_of(text, [](char16_t unit) { return unit < 0xC0; });
}

}  // namespace

bool isValidUTF8(std::string_view text) {
  while (!text.empty()) {
    const Decoded decoded = decodeFront(text);
    if (decoded.length == 0) return false;
    text.remove_prefix(decoded.length);
  }
  return true;
}

std::size_t utf16Length(std::string_view text) {
  std::size_t units = 0;
  while (!text.empty()) {
    const Decoded front = decodeFront(text);
    units += front.character < 0x10000 ? 1 : 2;
    text.remove_prefix(std::max<std::size_t>(front.length, 1));
  }
  return units;
}

std::u16string utf16FromUTF8(std::string_view text) {
  std::u16string converted;
  converted.reserve(text.size());
  while (!text.empty()) {
    const Decoded decoded = decodeFront(text);
    appendUTF16(converted, decoded.character);
    text.remove_prefix(std::max<std::size_t>(decoded.length, 1));
  }
  return converted;
}

std::string utf8FromUTF16(std::u16string_view text) {
  std::string converted;
  converted.reserve(text.size());
  while (!text.empty()) {
    const char32_t character = takeCharacter(text);
    appendUTF8(converted, isSurrogate(character) ? replacementCharacter : character);
  }
  return converted;
}

std::optional<int> decimalDigitValue(char16_t unit) {
  if (unit >= u'0' && unit <= u'9') return unit - u'0';
  if (unit < 0x80) return std::nullopt;
  const auto isDigit = [](utf8proc_int32_t character) {
    return utf8proc_category(character) == UTF8PROC_CATEGORY_ND;
  };
  if (!isDigit(unit)) return std::nullopt;
  // The digits of a script stand in a row from its zero on.
  int value = 0;
  while (value < 9 && isDigit(unit - value - 1)) ++value;
  return value;
}

int compareText(std::u16string_view a, std::u16string_view b) {
  if (a == b) return 0;
  if (isPlain(a) && isPlain(b)) return sign(a <=> b);
  return sign(canonicalDecomposition(a) <=> canonicalDecomposition(b));
}

std::string lowercase(std::string_view text) {
  std::string lowered;
  lowered.reserve(text.size());
  while (!text.empty()) {
    const Decoded decoded = decodeFront(text);
    const std::size_t length = std::max<std::size_t>(decoded.length, 1);
    if (decoded.length == 0) {
      lowered += text.front();
    } else {
      appendUTF8(lowered, static_cast<char32_t>(
                              utf8proc_tolower(static_cast<utf8proc_int32_t>(decoded.character))));
    }
    text.remove_prefix(length);
  }
  return lowered;
}

}  // namespace qbdkr
