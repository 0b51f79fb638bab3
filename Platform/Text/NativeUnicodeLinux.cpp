#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <iterator>

#include "Platform/Text/NativeUnicode.h"
#include "Platform/Text/UTF16.h"

namespace qbdkr {

namespace {

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

// Sorts each run, as the library's own reordering takes quadratic time for a long run of marks.
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

void appendCharacter(std::string& text, utf8proc_int32_t character) {
  std::array<utf8proc_uint8_t, 4> bytes{};
  const auto length = utf8proc_encode_char(character, bytes.data());
  for (utf8proc_ssize_t i = 0; i < length; ++i) {
    text += static_cast<char>(bytes[static_cast<std::size_t>(i)]);
  }
}

}  // namespace

bool isDecimalDigit(char16_t unit) { return utf8proc_category(unit) == UTF8PROC_CATEGORY_ND; }

// Decomposes characters here instead of UTF-8 in the library: UTF-8 cannot hold half a pair, and
// two different texts must not become equal.
std::u16string canonicalDecomposition(std::u16string_view text) {
  std::u32string decomposed;
  decomposed.reserve(text.size());
  while (!text.empty()) {
    const char32_t character = takeCharacter(text);
    // No character below has a decomposition.
    if (character < 0xC0) {
      decomposed += character;
    } else {
      appendDecomposed(decomposed, character);
    }
  }
  orderMarks(decomposed);
  std::u16string units;
  units.reserve(decomposed.size());
  for (const char32_t character : decomposed) appendUTF16(units, character);
  return units;
}

std::string lowercaseOfValid(std::string_view utf8) {
  std::string lowered;
  lowered.reserve(utf8.size());
  while (!utf8.empty()) {
    utf8proc_int32_t character = 0;
    const auto length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(utf8.data()),
                                         static_cast<utf8proc_ssize_t>(utf8.size()), &character);
    if (length <= 0) break;
    appendCharacter(lowered, utf8proc_tolower(character));
    utf8.remove_prefix(static_cast<std::size_t>(length));
  }
  return lowered;
}

}  // namespace qbdkr
