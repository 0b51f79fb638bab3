#include "Platform/Text/Text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "Platform/Text/NativeUnicode.h"
#include "Platform/Text/UTF16.h"

namespace qbdkr {

namespace {

constexpr char32_t replacementCharacter = 0xFFFD;

// One character of a UTF-8 text and its length in bytes; 0 if the bytes are invalid.
struct Decoded {
  char32_t character = replacementCharacter;
  std::size_t length = 0;
};

// The meaning of a character's first byte: the character's length in bytes, the bits that this byte
// holds, and the least value that needs this length. Length 0 if the byte begins no character.
struct Lead {
  std::size_t length = 0;
  char32_t bits = 0;
  char32_t least = 0;
};

constexpr Lead leadOf(unsigned char byte) {
  if (byte < 0x80) return {1, byte, 0};
  if (byte < 0xC0) return {};
  if (byte < 0xE0) return {2, byte & 0x1FU, 0x80};
  if (byte < 0xF0) return {3, byte & 0x0FU, 0x800};
  if (byte < 0xF8) return {4, byte & 0x07U, 0x10000};
  return {};
}

Decoded decodeFront(std::string_view text) {
  const Lead lead = leadOf(static_cast<unsigned char>(text.front()));
  if (lead.length == 0 || lead.length > text.size()) return {};
  char32_t character = lead.bits;
  for (const char c : text.substr(1, lead.length - 1)) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte & 0xC0U) != 0x80) return {};
    character = character << 6U | (byte & 0x3FU);
  }
  // Overlong, half a surrogate pair, or beyond the last character.
  if (character < lead.least || isSurrogate(character) || character > 0x10FFFF) return {};
  return {character, lead.length};
}

void appendUTF8(std::string& text, char32_t character) {
  const auto append = [&](char32_t byte) { text += static_cast<char>(byte); };
  const auto appendTail = [&](unsigned shift) { append(0x80U | (character >> shift & 0x3FU)); };
  if (character < 0x80) return append(character);
  if (character < 0x800) {
    append(0xC0U | character >> 6U);
    return appendTail(0);
  }
  if (character < 0x10000) {
    append(0xE0U | character >> 12U);
  } else {
    append(0xF0U | character >> 18U);
    appendTail(12);
  }
  appendTail(6);
  appendTail(0);
}

std::u32string charactersOf(std::u16string_view text) {
  std::u32string characters;
  characters.reserve(text.size());
  while (!text.empty()) characters += takeCharacter(text);
  return characters;
}

// Counts the bytes at the front that are ASCII, which nearly all texts are throughout. Runs for
// every text of every event, so it takes eight bytes at a time.
std::size_t asciiPrefix(std::string_view text) {
  constexpr std::uint64_t highBits = 0x8080808080808080U;
  std::size_t length = 0;
  for (std::uint64_t word = 0; text.size() - length >= sizeof word; length += sizeof word) {
    std::memcpy(&word, text.data() + length, sizeof word);
    if ((word & highBits) != 0) break;
  }
  while (length < text.size() && static_cast<signed char>(text[length]) >= 0) ++length;
  return length;
}

bool isASCII(std::string_view text) { return asciiPrefix(text) == text.size(); }

std::string lowercaseOfASCII(std::string_view text) {
  std::string lowered(text);
  for (char& byte : lowered) {
    if (byte >= 'A' && byte <= 'Z') byte = static_cast<char>(byte - 'A' + 'a');
  }
  return lowered;
}

// Counts the bytes at the front that are valid UTF-8.
std::size_t validPrefix(std::string_view text) {
  std::size_t length = asciiPrefix(text);
  while (length < text.size()) {
    const Decoded front = decodeFront(text.substr(length));
    if (front.length == 0) break;
    length += front.length;
    length += asciiPrefix(text.substr(length));
  }
  return length;
}

// A terminal acts on a control character, and shows what follows a mark of direction in another
// order. XML cannot have a noncharacter.
bool isControl(char32_t character) {
  return character < 0x20 || (character >= 0x7F && character < 0xA0) || character == 0x061C ||
         (character >= 0x200E && character <= 0x200F) ||
         (character >= 0x2028 && character <= 0x202E) ||
         (character >= 0x2066 && character <= 0x2069) || character == 0xFFFE || character == 0xFFFF;
}

// Returns the escape of a character, or of a byte that is not UTF-8.
std::string escapeOf(char32_t value, bool isCharacter) {
  if (value == '\n') return "\\n";
  if (value == '\r') return "\\r";
  if (value == '\t') return "\\t";
  std::array<char, 8> code{};
  std::snprintf(code.data(), code.size(), isCharacter && value >= 0x80 ? "\\u%04x" : "\\x%02x",
                static_cast<unsigned>(value));
  return code.data();
}

int sign(int comparison) { return comparison < 0 ? -1 : (comparison > 0 ? 1 : 0); }

// No character below the first accented letter has a decomposition.
bool isPlain(std::u16string_view text) {
  return std::ranges::all_of(text, [](char16_t unit) { return unit < 0xC0; });
}

}  // namespace

bool isPlainASCII(std::string_view text) {
  constexpr std::size_t step = sizeof(std::uint64_t);
  const auto isPlain = [](std::uint64_t word) {
    constexpr std::uint64_t highBits = 0x8080808080808080U;
    constexpr std::uint64_t ones = 0x0101010101010101U;
    return (((word - ones) | word) & highBits) == 0;
  };
  const auto wordAt = [text](std::size_t place) {
    std::uint64_t word = 0;
    std::memcpy(&word, text.data() + place, step);
    return word;
  };
  if (text.size() < step) {
    return std::ranges::all_of(text, [](char byte) { return static_cast<signed char>(byte) > 0; });
  }
  for (std::size_t place = 0; place + step < text.size(); place += step) {
    if (!isPlain(wordAt(place))) return false;
  }
  return isPlain(wordAt(text.size() - step));  // some bytes once more
}

bool hasAnyNoncharacter(std::string_view text) {
  if (isPlainASCII(text)) return false;
  constexpr std::string_view secondLast = "\xB7\xBF";
  for (auto i = text.find_first_of(secondLast); i != std::string_view::npos && i + 1 < text.size();
       i = text.find_first_of(secondLast, i + 1)) {
    const auto byte = [&](std::size_t place) { return static_cast<unsigned char>(text[place]); };
    const unsigned before = i == 0 ? 0U : byte(i - 1);
    const unsigned last = byte(i + 1);
    const bool endsPlane = byte(i) == 0xBF && (before & 0x0FU) == 0x0F && (last & 0xFEU) == 0xBE;
    const bool isArabic = byte(i) == 0xB7 && before == 0xEF && last >= 0x90 && last <= 0xAF;
    if (endsPlane || isArabic) return true;
  }
  return false;
}

bool isValidUTF8(std::string_view text) { return validPrefix(text) == text.size(); }

std::size_t utf16Length(std::string_view text) {
  std::size_t units = asciiPrefix(text);
  text.remove_prefix(units);
  while (!text.empty()) {
    const Decoded front = decodeFront(text);
    units += front.character < 0x10000 ? 1 : 2;
    text.remove_prefix(std::max<std::size_t>(front.length, 1));
  }
  return units;
}

std::u16string utf16FromUTF8(std::string_view text) {
  const std::size_t plain = asciiPrefix(text);
  std::u16string converted(text.begin(), text.begin() + plain);
  converted.reserve(text.size());
  text.remove_prefix(plain);
  while (!text.empty()) {
    const Decoded decoded = decodeFront(text);
    appendUTF16(converted, decoded.character);
    text.remove_prefix(std::max<std::size_t>(decoded.length, 1));
  }
  return converted;
}

std::string utf16WithMark(std::string_view text) {
  std::string bytes("\xFF\xFE", 2);
  for (const char16_t unit : utf16FromUTF8(text)) {
    bytes += static_cast<char>(unit & 0xFFU);
    bytes += static_cast<char>(unit >> 8U);
  }
  return bytes;
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

std::string escaped(std::string_view text, std::string_view kept, std::size_t most) {
  std::string result;
  result.reserve(std::min(text.size(), most));
  std::size_t at = 0;
  while (at < text.size() && at < most) {
    const Decoded front = decodeFront(text.substr(at));
    const std::string_view bytes = text.substr(at, std::max<std::size_t>(front.length, 1));
    const bool isCharacter = front.length > 0;
    if (isCharacter &&
        (!isControl(front.character) || kept.find(bytes) != std::string_view::npos)) {
      result += bytes;
    } else {
      result += escapeOf(isCharacter ? front.character : static_cast<unsigned char>(bytes.front()),
                         isCharacter);
    }
    at += bytes.size();
  }
  return at < text.size() ? result + "..." : result;
}

std::optional<int> decimalDigitValue(char16_t unit) {
  if (unit >= u'0' && unit <= u'9') return unit - u'0';
  if (unit < 0x80 || !isDecimalDigit(unit)) return std::nullopt;
  // The digits of a script follow one another from its zero.
  int value = 0;
  while (value < 9 && isDecimalDigit(static_cast<char16_t>(unit - value - 1))) ++value;
  return value;
}

int compareText(std::u16string_view a, std::u16string_view b) {
  if (a == b) return 0;
  if (isPlain(a) && isPlain(b)) return sign(a.compare(b));
  return sign(
      charactersOf(canonicalDecomposition(a)).compare(charactersOf(canonicalDecomposition(b))));
}

std::string lowercase(std::string_view text) {
  // A short cut for the names of languages, which every process compares when it starts.
  if (isASCII(text)) return lowercaseOfASCII(text);
  std::string lowered;
  lowered.reserve(text.size());
  while (!text.empty()) {
    const std::size_t valid = validPrefix(text);
    lowered += lowercaseOfValid(text.substr(0, valid));
    text.remove_prefix(valid);
    if (text.empty()) break;
    lowered += text.front();
    text.remove_prefix(1);
  }
  return lowered;
}

}  // namespace qbdkr
